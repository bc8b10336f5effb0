#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "FunctionUtil.h"

// Style sheets come from the skin tree beside the executable and are cached for the life of a process, so
// every case copies the probe tool into a fresh tree (bin/ with its skin, Frameworks/ pointing at the
// built libraries) and runs it there.
class tst_StyleLoading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void scaledVariant_data();
    void scaledVariant();
    void moduleFolder_data();
    void moduleFolder();
    void skinFromTheParameterStore_data();
    void skinFromTheParameterStore();
    void commonSheetsThenTheModuleSheet();
    void missingModuleSheetLeavesTheCommonOnes();
    void sheetsAreReadOncePerProcess_data();
    void sheetsAreReadOncePerProcess();
    void pathArgumentsMustNotBeEmpty();
    void binPathIsTheExecutableFolder();
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
    QVERIFY(QDir().mkpath(BinDir()));
    QVERIFY(QDir().mkpath(m_root->path() + "/data"));
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
    if (_qstrScale.isEmpty()) {
        env.remove("QT_SCALE_FACTOR");
    } else {
        env.insert("QT_SCALE_FACTOR", _qstrScale);
    }
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(BinDir() + "/style_probe", _lstArgs);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        qWarning() << "style_probe" << _lstArgs << "failed:" << process.readAllStandardError();
        return {};
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
    QTest::newRow("scale 2 takes the 4K sheet") << "2"
                                                << "_4K"
                                                << "CLS_View_4K.qss";
    QTest::newRow("no scale keeps the plain sheet") << ""
                                                    << "_4K"
                                                    << "CLS_View.qss";
    QTest::newRow("scale 2 without a 4K sheet") << "2"
                                                << ""
                                                << "CLS_View.qss";
    QTest::newRow("scale 1.5 names a 3K screen") << "1.5"
                                                 << "_3K"
                                                 << "CLS_View_3K.qss";
    QTest::newRow("scale 1.5 has no 4K screen") << "1.5"
                                                << "_4K"
                                                << "CLS_View.qss";
    QTest::newRow("scale 1 takes no variant") << "1"
                                              << "_2K"
                                              << "CLS_View.qss";
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
    QCOMPARE(RunProbe({"qsspath", "ModuleBackUp", "CLS_View"}, qstrScale),
             QStringList{"1 " + qstrQssDir + "/" + qstrExpected});
}

void tst_StyleLoading::moduleFolder_data()
{
    QTest::addColumn<QString>("qstrModuleCode");
    QTest::addColumn<QString>("qstrClassCode");
    QTest::addColumn<QString>("qstrFile");
    QTest::newRow("bare code") << "BackUp"
                               << "CLS_View"
                               << "ModuleBackUp/qss/CLS_View.qss";
    QTest::newRow("module code") << "ModuleBackUp"
                                 << "CLS_View"
                                 << "ModuleBackUp/qss/CLS_View.qss";
    QTest::newRow("widget library") << "WgtLoading"
                                    << "CLS_View"
                                    << "WgtLoading/qss/CLS_View.qss";
    QTest::newRow("host library") << "HxClient"
                                  << "CLS_View"
                                  << "HxClient/qss/CLS_View.qss";
    QTest::newRow("prefix is case-sensitive") << "wgtLoading"
                                              << "CLS_View"
                                              << "ModulewgtLoading/qss/CLS_View.qss";
    QTest::newRow("no class code") << "BackUp"
                                   << ""
                                   << "ModuleBackUp/qss/ModuleBackUp.qss";
}

void tst_StyleLoading::moduleFolder()
{
    QFETCH(QString, qstrModuleCode);
    QFETCH(QString, qstrClassCode);
    QFETCH(QString, qstrFile);
    WriteFile(SkinDir() + "/" + qstrFile, "#found {}");
    QCOMPARE(RunProbe({"mini", qstrModuleCode, qstrClassCode}), QStringList{"#found {}"});
}

void tst_StyleLoading::skinFromTheParameterStore_data()
{
    QTest::addColumn<QString>("qstrSkin");
    QTest::addColumn<QString>("qstrExpected");
    QTest::newRow("empty setting is dark") << ""
                                           << "#dark {}";
    QTest::newRow("named skin") << "light"
                                << "#light {}";
}

void tst_StyleLoading::skinFromTheParameterStore()
{
    QFETCH(QString, qstrSkin);
    QFETCH(QString, qstrExpected);
    WriteFile(SkinDir("dark") + "/ModuleBackUp/qss/CLS_View.qss", "#dark {}");
    WriteFile(SkinDir("light") + "/ModuleBackUp/qss/CLS_View.qss", "#light {}");
    QCOMPARE(RunProbe({"--skin", qstrSkin, "mini", "BackUp", "CLS_View"}), QStringList{qstrExpected});
}

void tst_StyleLoading::commonSheetsThenTheModuleSheet()
{
    WriteFile(SkinDir() + "/Common/b.qss", "b {}\n");
    WriteFile(SkinDir() + "/Common/a.qss", "a { image: url(./resource/skin/dark/images/x.svg); }\n");
    WriteFile(SkinDir() + "/Common/C.qss", "C {}\n");
    WriteFile(SkinDir() + "/Common/images/not-a-sheet.qss", "never {}\n");
    WriteFile(SkinDir() + "/ModuleBackUp/qss/CLS_View.qss", "#CLS_View {}\n");
    const QString qstrExpected = "a { image: url(" + BinDir() + "/resource/skin/dark/images/x.svg); }\n" +
                                 "b {}\nC {}\n#CLS_View {}\n";
    QCOMPARE(RunProbe({"load", "BackUp", "CLS_View"}), QStringList{qstrExpected});
}

void tst_StyleLoading::missingModuleSheetLeavesTheCommonOnes()
{
    WriteFile(SkinDir() + "/Common/a.qss", "a {}\n");
    QCOMPARE(RunProbe({"load", "BackUp", "CLS_Missing"}), QStringList{"a {}\n"});
    QCOMPARE(RunProbe({"mini", "BackUp", "CLS_Missing"}), QStringList{""});
}

void tst_StyleLoading::sheetsAreReadOncePerProcess_data()
{
    QTest::addColumn<QString>("qstrChanged");
    QTest::newRow("module sheet") << "ModuleBackUp/qss/CLS_View.qss";
    QTest::newRow("common sheet") << "Common/a.qss";
}

void tst_StyleLoading::sheetsAreReadOncePerProcess()
{
    QFETCH(QString, qstrChanged);
    WriteFile(SkinDir() + "/Common/a.qss", "a {}\n");
    WriteFile(SkinDir() + "/ModuleBackUp/qss/CLS_View.qss", "#CLS_View {}\n");
    const QStringList lstAnswers = RunProbe({"reload", "BackUp", "CLS_View", SkinDir() + "/" + qstrChanged});
    QCOMPARE(lstAnswers, (QStringList{"a {}\n#CLS_View {}\n", "a {}\n#CLS_View {}\n"}));
    // A new process reads the changed file.
    QVERIFY(RunProbe({"load", "BackUp", "CLS_View"}).value(0).contains("changed {}"));
}

void tst_StyleLoading::pathArgumentsMustNotBeEmpty()
{
    // Files that an unchecked empty name would find.
    WriteFile(SkinDir() + "/ModuleBackUp/qss/.qss", "{}");
    WriteFile(SkinDir() + "/qss/CLS_View.qss", "{}");
    QCOMPARE(RunProbe({"qsspath", "", "CLS_View"}).value(0).left(2), QString("0 "));
    QCOMPARE(RunProbe({"qsspath", "ModuleBackUp", ""}).value(0).left(2), QString("0 "));
}

void tst_StyleLoading::binPathIsTheExecutableFolder()
{
    QCOMPARE(RunProbe({"binpath"}), QStringList{QDir(BinDir()).canonicalPath()});
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
    const QRegularExpression reUrl("url\\(([^)]+)\\)");
    auto it = reUrl.globalMatch(qstrStyle);
    while (it.hasNext()) {
        const QString qstrImage = it.next().captured(1);
        QVERIFY2(QFile::exists(qstrImage), qPrintable(qstrImage));
    }
}

QTEST_GUILESS_MAIN(tst_StyleLoading)
#include "tst_StyleLoading.moc"
