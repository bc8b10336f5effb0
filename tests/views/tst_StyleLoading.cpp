#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "FunctionUtil.h"

// Each case copies the probe tool into a fresh tree (bin/ with its skin, Frameworks/ pointing at the built
// libraries) and asks it there.
class tst_StyleLoading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void probeAnswers_data();
    void probeAnswers();
    void installedSkinCoversTheModuleViews();

private:
    QString BinDir() const { return m_root->path() + "/bin"; }
    void WriteFile(const QString& _qstrPath, const QByteArray& _baText);
    // The probe's answers, in order.
    QStringList RunProbe(const QStringList& _lstArgs, const QString& _qstrScale = QString());

    std::unique_ptr<QTemporaryDir> m_root;
};

void tst_StyleLoading::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    QVERIFY(QDir().mkpath(BinDir()) && QDir().mkpath(m_root->path() + "/data"));
    QVERIFY(QFile::copy(STYLE_PROBE_PATH, BinDir() + "/style_probe"));
    const QString qstrFrameworks =
        QDir(QCoreApplication::applicationDirPath() + "/../Frameworks").canonicalPath();
    QVERIFY(QFile::link(qstrFrameworks, m_root->path() + "/Frameworks"));
}

void tst_StyleLoading::WriteFile(const QString& _qstrPath, const QByteArray& _baText)
{
    QVERIFY(QDir().mkpath(QFileInfo(_qstrPath).absolutePath()));
    QFile file(_qstrPath);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(_baText), qint64(_baText.size()));
}

QStringList tst_StyleLoading::RunProbe(const QStringList& _lstArgs, const QString& _qstrScale)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HX_DATA_PATH", m_root->path() + "/data");
    env.remove("QT_SCALE_FACTOR");
    if (!_qstrScale.isEmpty()) {
        env.insert("QT_SCALE_FACTOR", _qstrScale);
    }
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(BinDir() + "/style_probe", _lstArgs);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        return {"style_probe failed: " + QString::fromUtf8(process.readAllStandardError())};
    }
    QStringList lstAnswers;
    for (const QByteArray& baLine : process.readAllStandardOutput().split('\n')) {
        if (baLine.startsWith("answer=")) {
            lstAnswers.append(QString::fromUtf8(QByteArray::fromHex(baLine.mid(7))));
        }
    }
    return lstAnswers;
}

// Files are "path under the skin folder=text"; "%bin" in a query or an answer stands for the probe's folder.
void tst_StyleLoading::probeAnswers_data()
{
    QTest::addColumn<QString>("qstrScale");
    QTest::addColumn<QStringList>("lstFiles");
    QTest::addColumn<QStringList>("lstArgs");
    QTest::addColumn<QStringList>("lstExpected");
    const auto scaled = [](const char* _pName, const char* _pScale, const char* _pVariant,
                           const char* _pUsed) {
        QTest::newRow(_pName)
            << QString(_pScale)
            << QStringList{"dark/ModuleBackUp/qss/CLS_View.qss=plain",
                           QString("dark/ModuleBackUp/qss/CLS_View%1.qss=scaled").arg(_pVariant)}
            << QStringList{"mini:BackUp:CLS_View"} << QStringList{_pUsed};
    };
    scaled("scale 2 takes the 4K sheet", "2", "_4K", "scaled");
    scaled("scale 2 without a 4K sheet", "2", "_3K", "plain");
    scaled("scale 1.5 names a 3K screen", "1.5", "_3K", "scaled");
    scaled("scale 1 takes no variant", "1", "_2K", "plain");
    // The folder is the module code when it names a module, a widget or a host library (prefixes are
    // case-sensitive), else "Module" + the code; without a class code the file is named after the folder.
    const QStringList lstSheets{"ModuleBackUp/qss/CLS_View", "WgtLoading/qss/CLS_View",
                                "HxClient/qss/CLS_View", "ModulewgtLoading/qss/CLS_View",
                                "ModuleBackUp/qss/ModuleBackUp"};
    QStringList lstSheetFiles;
    for (const QString& qstrSheet : lstSheets) {
        lstSheetFiles << "dark/" + qstrSheet + ".qss=" + qstrSheet;
    }
    QTest::newRow("module folder") << QString() << lstSheetFiles
                                   << QStringList{"mini:BackUp:CLS_View",   "mini:WgtLoading:CLS_View",
                                                  "mini:HxClient:CLS_View", "mini:wgtLoading:CLS_View",
                                                  "mini:BackUp:",           "mini:ModuleBackUp:CLS_View",
                                                  "mini:BackUp:CLS_Missing"}
                                   << (lstSheets + QStringList{lstSheets.first(), ""});
    const QStringList lstSkins{"dark/ModuleBackUp/qss/CLS_View.qss=#dark {}",
                               "light/ModuleBackUp/qss/CLS_View.qss=#light {}"};
    QTest::newRow("skin from the parameter store")
        << QString() << lstSkins << QStringList{"--skin", "light", "mini:BackUp:CLS_View"}
        << QStringList{"#light {}"};
    QTest::newRow("an empty skin setting is the dark skin")
        << QString() << lstSkins << QStringList{"--skin", "", "mini:BackUp:CLS_View"}
        << QStringList{"#dark {}"};
    const QString qstrCommon = "a { image: url(%bin/resource/skin/dark/images/x.svg); }\nb {}\nC {}\n";
    QTest::newRow("common sheets in name order, then the module's")
        << QString()
        << QStringList{"dark/Common/b.qss=b {}\n",
                       "dark/Common/a.qss=a { image: url(./resource/skin/dark/images/x.svg); }\n",
                       "dark/Common/C.qss=C {}\n", "dark/Common/images/not-a-sheet.qss=never {}\n",
                       "dark/ModuleBackUp/qss/CLS_View.qss=#CLS_View {}\n"}
        << QStringList{"load:BackUp:CLS_View", "load:BackUp:CLS_Missing"}
        << QStringList{qstrCommon + "#CLS_View {}\n", qstrCommon};
    QTest::newRow("sheets are read once per process")
        << QString()
        << QStringList{"dark/Common/a.qss=a {}\n", "dark/ModuleBackUp/qss/CLS_View.qss=#CLS_View {}\n"}
        << QStringList{"load:BackUp:CLS_View", "write:%bin/resource/skin/dark/Common/a.qss",
                       "write:%bin/resource/skin/dark/ModuleBackUp/qss/CLS_View.qss", "load:BackUp:CLS_View"}
        << QStringList{"a {}\n#CLS_View {}\n", "a {}\n#CLS_View {}\n"};
    // The files are those that an unchecked empty name would find.
    QTest::newRow("empty names and the probe's folder")
        << QString() << QStringList{"dark/ModuleBackUp/qss/.qss={}", "dark/qss/CLS_View.qss={}"}
        << QStringList{"qsspath::CLS_View", "qsspath:ModuleBackUp:", "binpath"}
        << QStringList{"0 ", "0 ", "%bin"};
}

void tst_StyleLoading::probeAnswers()
{
    QFETCH(QString, qstrScale);
    QFETCH(QStringList, lstFiles);
    QFETCH(QStringList, lstArgs);
    QFETCH(QStringList, lstExpected);
    for (const QString& qstrFile : lstFiles) {
        WriteFile(BinDir() + "/resource/skin/" + qstrFile.section('=', 0, 0),
                  qstrFile.section('=', 1).toUtf8());
    }
    lstArgs.replaceInStrings("%bin", QDir(BinDir()).canonicalPath());
    lstExpected.replaceInStrings("%bin", QDir(BinDir()).canonicalPath());
    QCOMPARE(RunProbe(lstArgs, qstrScale), lstExpected);
}

void tst_StyleLoading::installedSkinCoversTheModuleViews()
{
    qputenv("HX_DATA_PATH", m_root->path().toUtf8() + "/data");
    const QString qstrSkin = FunctionUtil::GetBinPath() + "/resource/skin/dark";
    QVERIFY2(!QDir(qstrSkin + "/Common").entryList({"*.qss"}, QDir::Files).isEmpty(), qPrintable(qstrSkin));
    for (const char* pSheet : {"ModuleBackUp/qss/CLS_FrmBackUp", "ModuleBackUp/qss/CLS_BackUpProcess",
                               "ModuleBackUp/qss/CLS_FrmBackUp_4K", "ModuleBackUp/qss/CLS_BackUpProcess_4K",
                               "WgtLoading/qss/CLS_WgtLoading", "WgtMsgBox/qss/CLS_WgtMsgBox"}) {
        QVERIFY2(QFile::exists(qstrSkin + "/" + pSheet + ".qss"), pSheet);
    }
    const QString qstrStyle = FunctionUtil::LoadStyle("ModuleBackUp", nullptr, "CLS_FrmBackUp");
    QVERIFY(qstrStyle.contains("#CLS_FrmBackUp"));
    QVERIFY(!qstrStyle.contains("url(./"));
    // Every image that a sheet names is installed.
    auto it = QRegularExpression("url\\(([^)]+)\\)").globalMatch(qstrStyle);
    while (it.hasNext()) {
        const QString qstrImage = it.next().captured(1);
        QVERIFY2(QFile::exists(qstrImage), qPrintable(qstrImage));
    }
}

QTEST_GUILESS_MAIN(tst_StyleLoading)
#include "tst_StyleLoading.moc"
