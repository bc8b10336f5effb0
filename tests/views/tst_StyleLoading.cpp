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
    void scaledVariant_data();
    void scaledVariant();
    void moduleFolder();
    void skinFromTheParameterStore();
    void commonSheetsThenTheModuleSheet();
    void sheetsAreReadOncePerProcess();
    void paths();
    void installedSkinCoversTheModuleViews();

private:
    QString BinDir() const { return m_root->path() + "/bin"; }
    QString SkinDir(const QString& _qstrSkin = "dark") const
    {
        return BinDir() + "/resource/skin/" + _qstrSkin;
    }
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

void tst_StyleLoading::scaledVariant_data()
{
    QTest::addColumn<QString>("qstrScale");
    QTest::addColumn<QString>("qstrVariant");
    QTest::addColumn<QString>("qstrExpected");
    const auto row = [](const char* _pName, const char* _pScale, const char* _pVariant,
                        const char* _pExpected) {
        QTest::newRow(_pName) << QString(_pScale) << QString(_pVariant) << QString(_pExpected);
    };
    row("scale 2 takes the 4K sheet", "2", "_4K", "CLS_View_4K.qss");
    row("no scale keeps the plain sheet", "", "_4K", "CLS_View.qss");
    row("scale 2 without a 4K sheet", "2", "", "CLS_View.qss");
    row("scale 1.5 names a 3K screen", "1.5", "_3K", "CLS_View_3K.qss");
    row("scale 1 takes no variant", "1", "_2K", "CLS_View.qss");
}

void tst_StyleLoading::scaledVariant()
{
    QFETCH(QString, qstrScale);
    QFETCH(QString, qstrVariant);
    QFETCH(QString, qstrExpected);
    const QString qstrQssDir = SkinDir() + "/ModuleBackUp/qss";
    WriteFile(qstrQssDir + "/CLS_View.qss", "plain {}");
    if (!qstrVariant.isEmpty()) {
        WriteFile(qstrQssDir + "/CLS_View" + qstrVariant + ".qss", "scaled {}");
    }
    QCOMPARE(RunProbe({"qsspath:ModuleBackUp:CLS_View"}, qstrScale),
             QStringList{"1 " + qstrQssDir + "/" + qstrExpected});
}

// The folder is the module code when it names a module, a widget or a host library (prefixes are
// case-sensitive), else "Module" + the code; without a class code the file is named after the folder.
void tst_StyleLoading::moduleFolder()
{
    const QStringList lstSheets{"ModuleBackUp/qss/CLS_View", "WgtLoading/qss/CLS_View",
                                "HxClient/qss/CLS_View", "ModulewgtLoading/qss/CLS_View",
                                "ModuleBackUp/qss/ModuleBackUp"};
    for (const QString& qstrSheet : lstSheets) {
        WriteFile(SkinDir() + "/" + qstrSheet + ".qss", qstrSheet.toUtf8());
    }
    QCOMPARE(RunProbe({"mini:BackUp:CLS_View", "mini:WgtLoading:CLS_View", "mini:HxClient:CLS_View",
                       "mini:wgtLoading:CLS_View", "mini:BackUp:", "mini:ModuleBackUp:CLS_View",
                       "mini:BackUp:CLS_Missing"}),
             (lstSheets + QStringList{lstSheets.first(), ""}));
}

void tst_StyleLoading::skinFromTheParameterStore()
{
    WriteFile(SkinDir("dark") + "/ModuleBackUp/qss/CLS_View.qss", "#dark {}");
    WriteFile(SkinDir("light") + "/ModuleBackUp/qss/CLS_View.qss", "#light {}");
    QCOMPARE(RunProbe({"--skin", "light", "mini:BackUp:CLS_View"}), QStringList{"#light {}"});
    // An empty setting is the dark skin.
    QCOMPARE(RunProbe({"--skin", "", "mini:BackUp:CLS_View"}), QStringList{"#dark {}"});
}

void tst_StyleLoading::commonSheetsThenTheModuleSheet()
{
    WriteFile(SkinDir() + "/Common/b.qss", "b {}\n");
    WriteFile(SkinDir() + "/Common/a.qss", "a { image: url(./resource/skin/dark/images/x.svg); }\n");
    WriteFile(SkinDir() + "/Common/C.qss", "C {}\n");
    WriteFile(SkinDir() + "/Common/images/not-a-sheet.qss", "never {}\n");
    WriteFile(SkinDir() + "/ModuleBackUp/qss/CLS_View.qss", "#CLS_View {}\n");
    const QString qstrCommon =
        "a { image: url(" + BinDir() + "/resource/skin/dark/images/x.svg); }\nb {}\nC {}\n";
    QCOMPARE(RunProbe({"load:BackUp:CLS_View", "load:BackUp:CLS_Missing"}),
             (QStringList{qstrCommon + "#CLS_View {}\n", qstrCommon}));
}

void tst_StyleLoading::sheetsAreReadOncePerProcess()
{
    const QString qstrCommon = SkinDir() + "/Common/a.qss";
    const QString qstrModule = SkinDir() + "/ModuleBackUp/qss/CLS_View.qss";
    WriteFile(qstrCommon, "a {}\n");
    WriteFile(qstrModule, "#CLS_View {}\n");
    QCOMPARE(RunProbe({"load:BackUp:CLS_View", "write:" + qstrCommon, "write:" + qstrModule,
                       "load:BackUp:CLS_View"}),
             (QStringList{"a {}\n#CLS_View {}\n", "a {}\n#CLS_View {}\n"}));
    // A new process reads the changed files.
    QCOMPARE(RunProbe({"load:BackUp:CLS_View"}), QStringList{"changed {}changed {}"});
}

void tst_StyleLoading::paths()
{
    // Files that an unchecked empty name would find.
    WriteFile(SkinDir() + "/ModuleBackUp/qss/.qss", "{}");
    WriteFile(SkinDir() + "/qss/CLS_View.qss", "{}");
    const QStringList lstAnswers = RunProbe({"qsspath::CLS_View", "qsspath:ModuleBackUp:", "binpath"});
    QCOMPARE(lstAnswers.size(), 3);
    QVERIFY2(lstAnswers.at(0).startsWith("0 ") && lstAnswers.at(1).startsWith("0 "),
             qPrintable(lstAnswers.join('|')));
    QCOMPARE(lstAnswers.at(2), QDir(BinDir()).canonicalPath());
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
