#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_FrmBackUp.h"
#include "CLS_LineEdit.h"
#include "ViewTestSupport.h"

class tst_FrmBackUp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void validators_data();
    void validators();
    void firstShowLoadsTheSettingsOnce_data();
    void firstShowLoadsTheSettingsOnce();
    void save_data();
    void save();
    void saveAnswer_data();
    void saveAnswer();
    void browse_data();
    void browse();
    void cancelCloses();
    void placeholderStaysUntilTextIsTyped();

private:
    template <typename T = CLS_LineEdit>
    T* Child(const char* _pName) const
    {
        return m_pForm->findChild<T*>(_pName);
    }
    void CheckOneBox(const QString& _qstrText)
    {
        QCOMPARE(m_pCatcher->m_lstBoxes.size(), 1);
        QCOMPARE(m_pCatcher->m_lstBoxes.first().qstrTitle, QString("lab_notice"));
        QCOMPARE(m_pCatcher->m_lstBoxes.first().qstrText, _qstrText);
    }

    QTemporaryDir m_dir;
    std::unique_ptr<CLS_RecordingPresenter> m_pPresenter;
    std::unique_ptr<CLS_Bound<CLS_FrmBackUp>> m_pForm;
    std::unique_ptr<CLS_ModalCatcher> m_pCatcher;
};

void tst_FrmBackUp::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    QApplication::setCursorFlashTime(0);
}

void tst_FrmBackUp::init()
{
    m_pPresenter = std::make_unique<CLS_RecordingPresenter>();
    m_pPresenter->m_blForward = false;
    m_pPresenter->Init();
    m_pForm = std::make_unique<CLS_Bound<CLS_FrmBackUp>>(m_pPresenter.get());
    m_pCatcher = std::make_unique<CLS_ModalCatcher>();
    m_pForm->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_pForm.get()));
    QTRY_COMPARE_WITH_TIMEOUT(m_pPresenter->CountRequests("LoadLastSaveSetting"), 1, 5000);
}

void tst_FrmBackUp::cleanup()
{
    m_pForm.reset();
    m_pCatcher.reset();
    m_pPresenter.reset();
}

void tst_FrmBackUp::validators_data()
{
    QTest::addColumn<QString>("qstrField");
    QTest::addColumn<QString>("qstrTyped");
    QTest::addColumn<QString>("qstrKept");
    const auto row = [](const char* _pName, const char* _pField, const char* _pTyped, const char* _pKept) {
        QTest::newRow(_pName) << QString(_pField) << QString(_pTyped) << QString(_pKept);
    };
    row("count 1 then 5", "lineEdit_SaveCount", "15", "1");
    row("count 0", "lineEdit_SaveCount", "0", "");
    row("count 6", "lineEdit_SaveCount", "6", "");
    row("count letters", "lineEdit_SaveCount", "a-2", "2");
    row("interval 15", "lineEdit_SaveInterval", "15", "15");
    row("interval 16", "lineEdit_SaveInterval", "16", "1");
    row("interval 0", "lineEdit_SaveInterval", "0", "");
    row("path takes anything", "lineEdit_SavePath", "/data 1", "/data 1");
}

void tst_FrmBackUp::validators()
{
    QFETCH(QString, qstrField);
    QFETCH(QString, qstrTyped);
    QFETCH(QString, qstrKept);
    CLS_LineEdit* pEdit = Child(qstrField.toUtf8().constData());
    QVERIFY(pEdit != nullptr);
    QCOMPARE(pEdit->contextMenuPolicy(), Qt::NoContextMenu);
    pEdit->setFocus();
    QTest::keyClicks(pEdit, qstrTyped);
    QCOMPARE(pEdit->text(), qstrKept);
}

void tst_FrmBackUp::firstShowLoadsTheSettingsOnce_data()
{
    const QVariantMap qmapFull{{"__result__", "success"},    {"AutoEnable", 1},
                               {"BackUpFileSavePath", "/b"}, {"BackUpCount", 4},
                               {"AutoBackUpInteval", "12"},  {"AutoBackUpTime", "2026-12-01"}};
    QTest::addColumn<QVariantMap>("qmapAnswer");
    QTest::addColumn<bool>("blShown");
    QTest::newRow("complete") << qmapFull << true;
    QVariantMap qmapNoTime = qmapFull;
    qmapNoTime.remove("AutoBackUpTime");
    QTest::newRow("without the next time") << qmapNoTime << false;
    QVariantMap qmapFailed = qmapFull;
    qmapFailed.insert("__result__", "fail");
    QTest::newRow("failed") << qmapFailed << false;
}

void tst_FrmBackUp::firstShowLoadsTheSettingsOnce()
{
    QFETCH(QVariantMap, qmapAnswer);
    QFETCH(bool, blShown);
    const STRUCT_SentRequest request = m_pPresenter->Requests().first();
    QCOMPARE(request.qstrKey, QString("LoadLastSaveSetting"));
    QVERIFY(!QUuid(request.qstrUUID).isNull());
    QCOMPARE(request.qmapParam.keys(), QStringList{"__object__"});
    m_pForm->hide();
    m_pForm->show();
    QCOMPARE(DrainPoolTasks(m_pForm.get()), 0);
    QCOMPARE(m_pPresenter->CountRequests("LoadLastSaveSetting"), 1);

    Answer(*m_pPresenter, m_pForm.get(), "LoadLastSaveSetting", qmapAnswer);
    const auto shown = [blShown](const char* _pText) { return blShown ? QString(_pText) : QString(); };
    QCOMPARE(Child<QCheckBox>("checkBox_Enable")->isChecked(), blShown);
    QCOMPARE(Child("lineEdit_SavePath")->text(), shown("/b"));
    QCOMPARE(Child("lineEdit_SavePath")->toolTip(), shown("/b"));
    QCOMPARE(Child("lineEdit_SaveCount")->text(), shown("4"));
    QCOMPARE(Child("lineEdit_SaveInterval")->text(), shown("12"));
    QCOMPARE(Child<QLabel>("label_autobackup_time")->text(), shown("2026-12-01"));
    QVERIFY(m_pCatcher->m_lstBoxes.isEmpty());
}

void tst_FrmBackUp::save_data()
{
    QTest::addColumn<bool>("blAuto");
    QTest::addColumn<QString>("qstrCount");
    QTest::addColumn<QString>("qstrPath");
    QTest::addColumn<QString>("qstrInterval");
    QTest::addColumn<QString>("qstrMessage");
    const auto row = [](const char* _pName, bool _blAuto, const char* _pCount, const char* _pPath,
                        const char* _pInterval, const char* _pMessage) {
        QTest::newRow(_pName) << _blAuto << QString(_pCount) << QString(_pPath) << QString(_pInterval)
                              << QString(_pMessage);
    };
    // With several fields empty, only the first one checked is named.
    row("all three empty: count first", true, "", "", "", "msg_autobackup_count");
    row("path and interval empty: path first", true, "3", "", "", "msg_choose_backup_path");
    row("interval empty", true, "3", "/b", "", "msg_choose_backup_interval");
    row("automatic backup on", true, "3", "/b/AutoBackUp", "12", "");
    row("automatic backup off", false, "3", "/b/AutoBackUp", "12", "");
}

void tst_FrmBackUp::save()
{
    QFETCH(bool, blAuto);
    QFETCH(QString, qstrCount);
    QFETCH(QString, qstrPath);
    QFETCH(QString, qstrInterval);
    QFETCH(QString, qstrMessage);
    Child<QCheckBox>("checkBox_Enable")->setChecked(blAuto);
    Child("lineEdit_SaveCount")->setText(qstrCount);
    Child("lineEdit_SavePath")->setText(qstrPath);
    Child("lineEdit_SaveInterval")->setText(qstrInterval);
    QTest::mouseClick(Child<QPushButton>("pushButton_Save"), Qt::LeftButton);
    if (!qstrMessage.isEmpty()) {
        CheckOneBox(qstrMessage);
        QCOMPARE(m_pCatcher->m_lstBoxes.first().buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
        QCOMPARE(m_pPresenter->CountRequests("SaveSettint"), 0);
        return;
    }
    QCOMPARE(m_pPresenter->CountRequests("SaveSettint"), 1);
    const STRUCT_SentRequest request = m_pPresenter->Requests().last();
    QVERIFY(!QUuid(request.qstrUUID).isNull());
    // The presenter converts the numbers; the form sends the fields' text.
    const QVariantMap qmapExpected{{"AutoEnable", blAuto},
                                   {"BackUpFileSavePath", qstrPath},
                                   {"BackUpCount", qstrCount},
                                   {"AutoBackUpInteval", qstrInterval},
                                   {"__object__", QVariant::fromValue(static_cast<void*>(m_pForm.get()))}};
    QCOMPARE(request.qmapParam, qmapExpected);
    QVERIFY(m_pCatcher->m_lstBoxes.isEmpty());
    QVERIFY(m_pForm->isVisible());
}

void tst_FrmBackUp::saveAnswer_data()
{
    QTest::addColumn<QVariantMap>("qmapAnswer");
    QTest::addColumn<QString>("qstrMessage");
    QTest::addColumn<QString>("qstrNextTime");
    const QString qstrSaved = "lab_save_successfully";
    QTest::newRow("saved with a new time")
        << QVariantMap{{"__result__", "success"}, {"AutoBackUpTime", "2026-12-24"}} << qstrSaved
        << "2026-12-24";
    QTest::newRow("saved, interval unchanged")
        << QVariantMap{{"__result__", "success"}, {"AutoBackUpTime", ""}} << qstrSaved << "";
    QTest::newRow("saved without a time")
        << QVariantMap{{"__result__", "success"}} << qstrSaved << "2026-12-01";
    QTest::newRow("failed") << QVariantMap{{"__result__", "fail"}, {"AutoBackUpTime", "2026-12-24"}}
                            << "msg_failed_to_save"
                            << "2026-12-01";
}

void tst_FrmBackUp::saveAnswer()
{
    QFETCH(QVariantMap, qmapAnswer);
    QFETCH(QString, qstrMessage);
    QFETCH(QString, qstrNextTime);
    Child<QLabel>("label_autobackup_time")->setText("2026-12-01");
    Answer(*m_pPresenter, m_pForm.get(), "SaveSettint", qmapAnswer);
    CheckOneBox(qstrMessage);
    QCOMPARE(Child<QLabel>("label_autobackup_time")->text(), qstrNextTime);
}

void tst_FrmBackUp::browse_data()
{
    QTest::addColumn<bool>("blChoose");
    QTest::newRow("folder chosen") << true;
    QTest::newRow("dialog cancelled") << false;
}

void tst_FrmBackUp::browse()
{
    QFETCH(bool, blChoose);
    QTemporaryDir chosen;
    QVERIFY(chosen.isValid());
    const QString qstrChosen = QDir(chosen.path()).canonicalPath();
    CLS_LineEdit* pPath = Child("lineEdit_SavePath");
    pPath->setText(qstrChosen);
    QString qstrCaption;
    QString qstrStart;
    int iDialogs = 0;
    m_pCatcher->m_onFileDialog = [&](QFileDialog* _pDialog) {
        ++iDialogs;
        qstrCaption = _pDialog->windowTitle();
        qstrStart = _pDialog->directory().canonicalPath();
        QMetaObject::invokeMethod(_pDialog, blChoose ? "accept" : "reject");
    };
    QTest::mouseClick(Child<QPushButton>("pushButton_Browse"), Qt::LeftButton);
    QCOMPARE(iDialogs, 1);
    QCOMPARE(qstrCaption, QString("lab_Select_folders"));
    QCOMPARE(qstrStart, qstrChosen);
    const QString qstrExpected = blChoose ? qstrChosen + "/AutoBackUp" : qstrChosen;
    QCOMPARE(pPath->text(), qstrExpected);
    if (blChoose) {
        QCOMPARE(pPath->toolTip(), qstrExpected);
        QCOMPARE(pPath->cursorPosition(), 0);
    }
}

void tst_FrmBackUp::cancelCloses()
{
    Child("lineEdit_SaveCount")->setText("3");
    QTest::mouseClick(Child<QPushButton>("pushButton_Cannel"), Qt::LeftButton);
    QVERIFY(!m_pForm->isVisible());
    QCOMPARE(m_pPresenter->CountRequests("SaveSettint"), 0);
    QVERIFY(m_pCatcher->m_lstBoxes.isEmpty());
}

// What the eye sees, as grabbed images: the placeholder stays while the field has focus, and goes once text
// is typed.
void tst_FrmBackUp::placeholderStaysUntilTextIsTyped()
{
    const auto grab = [](CLS_LineEdit& _edit) {
        _edit.resize(240, 36);
        _edit.show();
        _edit.activateWindow();
        _edit.setFocus();
        if (!QTest::qWaitForWindowActive(&_edit)) {
            return QImage();
        }
        // The first paint moves the placeholder into the edit's own member.
        _edit.grab();
        return _edit.grab().toImage();
    };
    // Pixels near the placeholder's dark grey.
    const auto grey = [](const QImage& _image) {
        int iCount = 0;
        for (int i = 0; i < _image.width() * _image.height(); ++i) {
            const QColor color = _image.pixelColor(i % _image.width(), i / _image.width());
            iCount += qAbs(color.red() - QColor(Qt::darkGray).red()) < 24 &&
                      qAbs(color.red() - color.green()) < 8 && qAbs(color.green() - color.blue()) < 8;
        }
        return iCount;
    };
    CLS_LineEdit placeholder;
    placeholder.setPlaceholderText("1 to 5 archives");
    const QImage imageShown = grab(placeholder);
    QVERIFY(!imageShown.isNull() && placeholder.hasFocus());
    QCOMPARE(placeholder.GetPlaceholder(), QString("1 to 5 archives"));
    QTest::keyClicks(&placeholder, "3");
    const QImage imageTyped = placeholder.grab().toImage();

    CLS_LineEdit plain;
    const QImage imageEmpty = grab(plain);
    QVERIFY(!imageEmpty.isNull());
    QVERIFY(grey(imageShown) > grey(imageEmpty) + 20);
    QTest::keyClicks(&plain, "3");
    QCOMPARE(imageTyped, plain.grab().toImage());
}

QTEST_MAIN(tst_FrmBackUp)
#include "tst_FrmBackUp.moc"
