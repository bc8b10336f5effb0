#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QUuid>
#include <QtTest>

#include "CLS_FrmBackUp.h"
#include "CLS_LineEdit.h"
#include "ViewTestSupport.h"

// The settings form bound to a recording presenter instead of the module's.
class CLS_TestFrmBackUp : public CLS_FrmBackUp
{
public:
    explicit CLS_TestFrmBackUp(CLS_PresenterBasic* _pPresenter) : m_pPresenter(_pPresenter) {}
    CLS_PresenterBasic* GetPresenter() override { return m_pPresenter; }

private:
    CLS_PresenterBasic* m_pPresenter;
};

class tst_FrmBackUp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void validators_data();
    void validators();
    void firstShowLoadsTheSettingsOnce();
    void loadAnswer_data();
    void loadAnswer();
    void saveWithAFieldEmpty_data();
    void saveWithAFieldEmpty();
    void saveWithAutomaticBackupOff();
    void saveAnswer_data();
    void saveAnswer();
    void browse_data();
    void browse();
    void cancelCloses();

private:
    template <typename T>
    T* Child(const char* _pName) const
    {
        return m_pForm->findChild<T*>(_pName);
    }
    void FillFields(const QString& _qstrCount, const QString& _qstrPath, const QString& _qstrInterval);
    void Answer(const QString& _qstrKey, QVariantMap _qmapResult);

    QTemporaryDir m_dir;
    std::unique_ptr<CLS_RecordingPresenter> m_pPresenter;
    std::unique_ptr<CLS_TestFrmBackUp> m_pForm;
    std::unique_ptr<CLS_ModalCatcher> m_pCatcher;
};

void tst_FrmBackUp::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
}

void tst_FrmBackUp::init()
{
    m_pPresenter = std::make_unique<CLS_RecordingPresenter>();
    m_pPresenter->m_blForward = false;
    m_pPresenter->Init();
    m_pForm = std::make_unique<CLS_TestFrmBackUp>(m_pPresenter.get());
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

void tst_FrmBackUp::FillFields(const QString& _qstrCount, const QString& _qstrPath,
                               const QString& _qstrInterval)
{
    Child<CLS_LineEdit>("lineEdit_SaveCount")->setText(_qstrCount);
    Child<CLS_LineEdit>("lineEdit_SavePath")->setText(_qstrPath);
    Child<CLS_LineEdit>("lineEdit_SaveInterval")->setText(_qstrInterval);
}

void tst_FrmBackUp::Answer(const QString& _qstrKey, QVariantMap _qmapResult)
{
    _qmapResult.insert("__object__", QVariant::fromValue(static_cast<void*>(m_pForm.get())));
    Q_EMIT m_pPresenter->SignTaskResult(_qstrKey, _qmapResult, QUuid::createUuid().toString());
}

void tst_FrmBackUp::validators_data()
{
    QTest::addColumn<QString>("qstrField");
    QTest::addColumn<QString>("qstrTyped");
    QTest::addColumn<QString>("qstrKept");
    QTest::newRow("count 3") << "lineEdit_SaveCount"
                             << "3"
                             << "3";
    QTest::newRow("count 1 and 5") << "lineEdit_SaveCount"
                                   << "15"
                                   << "1";
    QTest::newRow("count 0") << "lineEdit_SaveCount"
                             << "0"
                             << "";
    QTest::newRow("count 6") << "lineEdit_SaveCount"
                             << "6"
                             << "";
    QTest::newRow("count 10") << "lineEdit_SaveCount"
                              << "10"
                              << "1";
    QTest::newRow("count letters") << "lineEdit_SaveCount"
                                   << "a-2"
                                   << "2";
    QTest::newRow("interval 9") << "lineEdit_SaveInterval"
                                << "9"
                                << "9";
    QTest::newRow("interval 10") << "lineEdit_SaveInterval"
                                 << "10"
                                 << "10";
    QTest::newRow("interval 15") << "lineEdit_SaveInterval"
                                 << "15"
                                 << "15";
    QTest::newRow("interval 16") << "lineEdit_SaveInterval"
                                 << "16"
                                 << "1";
    QTest::newRow("interval 0") << "lineEdit_SaveInterval"
                                << "0"
                                << "";
    QTest::newRow("interval 99") << "lineEdit_SaveInterval"
                                 << "99"
                                 << "9";
    QTest::newRow("interval 150") << "lineEdit_SaveInterval"
                                  << "150"
                                  << "15";
    QTest::newRow("path takes anything") << "lineEdit_SavePath"
                                         << "/data 1"
                                         << "/data 1";
}

void tst_FrmBackUp::validators()
{
    QFETCH(QString, qstrField);
    QFETCH(QString, qstrTyped);
    QFETCH(QString, qstrKept);
    auto* pEdit = m_pForm->findChild<CLS_LineEdit*>(qstrField);
    QVERIFY(pEdit != nullptr);
    QCOMPARE(pEdit->contextMenuPolicy(), Qt::NoContextMenu);
    pEdit->setFocus();
    QTest::keyClicks(pEdit, qstrTyped);
    QCOMPARE(pEdit->text(), qstrKept);
}

void tst_FrmBackUp::firstShowLoadsTheSettingsOnce()
{
    const STRUCT_SentRequest request = m_pPresenter->Requests().first();
    QCOMPARE(request.qstrKey, QString("LoadLastSaveSetting"));
    QVERIFY(!QUuid(request.qstrUUID).isNull());
    QCOMPARE(request.qmapParam.keys(), QStringList{"__object__"});
    m_pForm->hide();
    m_pForm->show();
    QCOMPARE(DrainPoolTasks(m_pForm.get()), 0);
    QCOMPARE(m_pPresenter->CountRequests("LoadLastSaveSetting"), 1);
}

void tst_FrmBackUp::loadAnswer_data()
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

void tst_FrmBackUp::loadAnswer()
{
    QFETCH(QVariantMap, qmapAnswer);
    QFETCH(bool, blShown);
    Answer("LoadLastSaveSetting", qmapAnswer);
    QCOMPARE(Child<QCheckBox>("checkBox_Enable")->isChecked(), blShown);
    QCOMPARE(Child<CLS_LineEdit>("lineEdit_SavePath")->text(), blShown ? QString("/b") : QString());
    QCOMPARE(Child<CLS_LineEdit>("lineEdit_SavePath")->toolTip(), blShown ? QString("/b") : QString());
    QCOMPARE(Child<CLS_LineEdit>("lineEdit_SaveCount")->text(), blShown ? QString("4") : QString());
    QCOMPARE(Child<CLS_LineEdit>("lineEdit_SaveInterval")->text(), blShown ? QString("12") : QString());
    QCOMPARE(Child<QLabel>("label_autobackup_time")->text(), blShown ? QString("2026-12-01") : QString());
    QVERIFY(m_pCatcher->m_lstBoxes.isEmpty());
}

void tst_FrmBackUp::saveWithAFieldEmpty_data()
{
    QTest::addColumn<QString>("qstrCount");
    QTest::addColumn<QString>("qstrPath");
    QTest::addColumn<QString>("qstrInterval");
    QTest::addColumn<QString>("qstrMessage");
    QTest::newRow("count") << ""
                           << "/b"
                           << "7"
                           << "msg_autobackup_count";
    QTest::newRow("path") << "3"
                          << ""
                          << "7"
                          << "msg_choose_backup_path";
    QTest::newRow("interval") << "3"
                              << "/b"
                              << ""
                              << "msg_choose_backup_interval";
    QTest::newRow("all three: count first") << ""
                                            << ""
                                            << ""
                                            << "msg_autobackup_count";
    QTest::newRow("path and interval: path first") << "3"
                                                   << ""
                                                   << ""
                                                   << "msg_choose_backup_path";
}

void tst_FrmBackUp::saveWithAFieldEmpty()
{
    QFETCH(QString, qstrCount);
    QFETCH(QString, qstrPath);
    QFETCH(QString, qstrInterval);
    QFETCH(QString, qstrMessage);
    FillFields(qstrCount, qstrPath, qstrInterval);
    QTest::mouseClick(Child<QPushButton>("pushButton_Save"), Qt::LeftButton);
    QCOMPARE(m_pCatcher->m_lstBoxes.size(), 1);
    QCOMPARE(m_pCatcher->m_lstBoxes.first().qstrTitle, QString("lab_notice"));
    QCOMPARE(m_pCatcher->m_lstBoxes.first().qstrText, qstrMessage);
    QCOMPARE(m_pCatcher->m_lstBoxes.first().buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QCOMPARE(m_pPresenter->CountRequests("SaveSettint"), 0);
}

void tst_FrmBackUp::saveWithAutomaticBackupOff()
{
    Child<QCheckBox>("checkBox_Enable")->setChecked(false);
    FillFields("3", "/b/AutoBackUp", "12");
    QTest::mouseClick(Child<QPushButton>("pushButton_Save"), Qt::LeftButton);

    QCOMPARE(m_pPresenter->CountRequests("SaveSettint"), 1);
    const STRUCT_SentRequest request = m_pPresenter->Requests().last();
    QVERIFY(!QUuid(request.qstrUUID).isNull());
    QCOMPARE(request.qmapParam.value("AutoEnable"), QVariant(false));
    QCOMPARE(request.qmapParam.value("BackUpFileSavePath"), QVariant(QString("/b/AutoBackUp")));
    // The presenter converts the numbers; the form sends the fields' text.
    QCOMPARE(request.qmapParam.value("BackUpCount"), QVariant(QString("3")));
    QCOMPARE(request.qmapParam.value("AutoBackUpInteval"), QVariant(QString("12")));
    QCOMPARE(request.qmapParam.value("__object__").value<void*>(), static_cast<void*>(m_pForm.get()));
    QCOMPARE(request.qmapParam.size(), 5);
    QVERIFY(m_pCatcher->m_lstBoxes.isEmpty());
    QVERIFY(m_pForm->isVisible());
}

void tst_FrmBackUp::saveAnswer_data()
{
    QTest::addColumn<QVariantMap>("qmapAnswer");
    QTest::addColumn<QString>("qstrMessage");
    QTest::addColumn<QString>("qstrNextTime");
    QTest::newRow("saved with a new time")
        << QVariantMap{{"__result__", "success"}, {"AutoBackUpTime", "2026-12-24"}} << "lab_save_successfully"
        << "2026-12-24";
    QTest::newRow("saved, interval unchanged")
        << QVariantMap{{"__result__", "success"}, {"AutoBackUpTime", ""}} << "lab_save_successfully"
        << "";
    QTest::newRow("saved without a time") << QVariantMap{{"__result__", "success"}} << "lab_save_successfully"
                                          << "2026-12-01";
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
    Answer("SaveSettint", qmapAnswer);
    QCOMPARE(m_pCatcher->m_lstBoxes.size(), 1);
    QCOMPARE(m_pCatcher->m_lstBoxes.first().qstrTitle, QString("lab_notice"));
    QCOMPARE(m_pCatcher->m_lstBoxes.first().qstrText, qstrMessage);
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
    auto* pPath = Child<CLS_LineEdit>("lineEdit_SavePath");
    pPath->setText(qstrChosen);
    QString qstrCaption;
    QString qstrStart;
    m_pCatcher->m_onFileDialog = [&](QFileDialog* _pDialog) {
        qstrCaption = _pDialog->windowTitle();
        qstrStart = _pDialog->directory().canonicalPath();
        QMetaObject::invokeMethod(_pDialog, blChoose ? "accept" : "reject");
    };
    QTest::mouseClick(Child<QPushButton>("pushButton_Browse"), Qt::LeftButton);
    QCOMPARE(m_pCatcher->m_iFileDialogs, 1);
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
    FillFields("3", "/b", "7");
    QTest::mouseClick(Child<QPushButton>("pushButton_Cannel"), Qt::LeftButton);
    QVERIFY(!m_pForm->isVisible());
    QCOMPARE(m_pPresenter->CountRequests("SaveSettint"), 0);
}

QTEST_MAIN(tst_FrmBackUp)
#include "tst_FrmBackUp.moc"
