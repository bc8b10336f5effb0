#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CLS_StreamCapture.h"
#include "Util.h"

namespace {

int Call(void* _pFun)
{
    return Util::FunctionCast<int (*)()>(_pFun)();
}

int CountLines(const std::string& _strText, const std::string& _strNeedle)
{
    int iCount = 0;
    for (auto pos = _strText.find(_strNeedle); pos != std::string::npos;
         pos = _strText.find(_strNeedle, pos + 1)) {
        ++iCount;
    }
    return iCount;
}

} // namespace

class tst_ServiceLoader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingLibraryIsReportedOnceAndNeverReopened();
    void missingSymbolIsNullWhileOthersResolve();
    void facadeTableIsFilledOnceAndRefilledOnlyForUnknownNames();
    void bareNameIsFoundThroughTheRunPath();
    void modulePath();
    void dataPath_data();
    void dataPath();
    void dataPathWithoutPasswordEntry();
    void fileExists_data();
    void fileExists();
};

void tst_ServiceLoader::missingLibraryIsReportedOnceAndNeverReopened()
{
    const std::string strPath = "/nonexistent/folder/libHxNowhere.so";
    CLS_StreamCapture out(STDOUT_FILENO);
    CLS_StreamCapture err(STDERR_FILENO);
    const Util::MapFunction mapFirst = Util::GetDllFunction(strPath, std::list<std::string>{"A", "B"});
    const std::string strFirstOut = out.Text();
    const std::string strFirstErr = err.Text();

    QVERIFY(mapFirst.empty());
    QCOMPARE(CountLines(strFirstOut, "load dll - " + strPath + "\n"), 1);
    QCOMPARE(CountLines(strFirstErr, "\n"), 1);
    QVERIFY2(strFirstErr.rfind("load dll [" + strPath + "] fail !!! ", 0) == 0, strFirstErr.c_str());

    CLS_StreamCapture out2(STDOUT_FILENO);
    CLS_StreamCapture err2(STDERR_FILENO);
    QCOMPARE(Util::GetDllFunction(strPath, "A"), nullptr);
    QVERIFY(Util::GetDllFunction(strPath, std::list<std::string>{"A"}).empty());
    QCOMPARE(QString::fromStdString(out2.Text()), QString());
    QCOMPARE(QString::fromStdString(err2.Text()), QString());
}

void tst_ServiceLoader::missingSymbolIsNullWhileOthersResolve()
{
    CLS_StreamCapture out(STDOUT_FILENO);
    const Util::MapFunction mapFuns =
        Util::GetDllFunction(HX_TEST_SYMBOLS_LIB, std::list<std::string>{"Alpha", "Missing", "Beta"});
    const std::string strOut = out.Text();

    QCOMPARE(mapFuns.size(), size_t(3));
    QCOMPARE(mapFuns.at("Missing"), nullptr);
    QVERIFY(mapFuns.at("Alpha") != nullptr);
    QVERIFY(mapFuns.at("Beta") != nullptr);
    QCOMPARE(Call(mapFuns.at("Alpha")), 1);
    QCOMPARE(Call(mapFuns.at("Beta")), 2);
    // Every requested name is reported, found or not, with the library's own spelling of success.
    QCOMPARE(CountLines(strOut, std::string("load dll [") + HX_TEST_SYMBOLS_LIB + ": Missing] sucess\n"), 1);
    QCOMPARE(CountLines(strOut, "] sucess\n"), 3);
    QCOMPARE(Util::GetDllFunction(HX_TEST_SYMBOLS_LIB, "Missing"), nullptr);
    QCOMPARE(Call(Util::GetDllFunction(HX_TEST_SYMBOLS_LIB, "Beta")), 2);
}

void tst_ServiceLoader::facadeTableIsFilledOnceAndRefilledOnlyForUnknownNames()
{
    Util::CLS_ServiceFunctions functions("HxTestSymbols", {"Alpha", "Beta", "Gamma"});

    CLS_StreamCapture out(STDOUT_FILENO);
    QCOMPARE(Call(functions.GetModuleFun("Beta", HX_TEST_SYMBOLS_DIR)), 2);
    QCOMPARE(functions.GetModuleFun("Gamma", HX_TEST_SYMBOLS_DIR), nullptr);
    QCOMPARE(Call(functions.GetModuleFun("Alpha", HX_TEST_SYMBOLS_DIR)), 1);
    const std::string strKnown = out.Text();
    // One pass over the whole list; names of the list that are missing do not trigger another.
    QCOMPARE(CountLines(strKnown, "] sucess\n"), 3);

    CLS_StreamCapture out2(STDOUT_FILENO);
    QCOMPARE(functions.GetModuleFun("NotInList", HX_TEST_SYMBOLS_DIR), nullptr);
    const std::string strUnknown = out2.Text();
    QCOMPARE(CountLines(strUnknown, "] sucess\n"), 3);
    QCOMPARE(CountLines(strUnknown, "load dll - "), 0);
    QCOMPARE(Call(functions.GetModuleFun("Beta", HX_TEST_SYMBOLS_DIR)), 2);
}

void tst_ServiceLoader::bareNameIsFoundThroughTheRunPath()
{
    QVERIFY(Util::GetDllFunction(Util::LibraryFileName("HxLog"), "PrintLog") != nullptr);
#if defined(__APPLE__)
    QCOMPARE(QString::fromStdString(Util::LibraryFileName("HxLog")), QString("libHxLog.dylib"));
#else
    QCOMPARE(QString::fromStdString(Util::LibraryFileName("HxLog")), QString("libHxLog.so"));
#endif
}

void tst_ServiceLoader::modulePath()
{
    QCOMPARE(QString::fromStdString(Util::GetModulePath()),
             QCoreApplication::applicationDirPath() + "/../Frameworks");
    QCOMPARE(QString::fromStdString(Util::ModulePathFor("")), QString(".//../Frameworks"));
    QCOMPARE(QString::fromStdString(Util::ModulePathFor("/opt/client/bin/Client")),
             QString("/opt/client/bin/../Frameworks"));
}

void tst_ServiceLoader::dataPath_data()
{
    QTest::addColumn<QByteArray>("override");
    QTest::addColumn<QString>("expected");

    const passwd* pPw = getpwuid(geteuid());
    QVERIFY(pPw != nullptr);
    const QString qstrDefault = QString::fromUtf8(pPw->pw_dir) + "/Library/Application Support/" +
                                QCoreApplication::applicationName();
    QTest::newRow("override is taken as it is")
        << QByteArray("/tmp/some where/") << QString("/tmp/some where/");
    QTest::newRow("empty override is ignored") << QByteArray("") << qstrDefault;
}

void tst_ServiceLoader::dataPath()
{
    QFETCH(QByteArray, override);
    QFETCH(QString, expected);
    const QByteArray qbaSaved = qgetenv("HX_DATA_PATH");
    qputenv("HX_DATA_PATH", override);
    const QString qstrPath = QString::fromStdString(Util::GetDataPath());
    qputenv("HX_DATA_PATH", qbaSaved);
    QCOMPARE(qstrPath, expected);
}

void tst_ServiceLoader::dataPathWithoutPasswordEntry()
{
    if (geteuid() != 0) {
        QSKIP("changing the effective user needs root");
    }
    uid_t uiUnknown = 54321;
    while (getpwuid(uiUnknown) != nullptr) {
        ++uiUnknown;
    }
    int fds[2];
    QCOMPARE(pipe(fds), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        unsetenv("HX_DATA_PATH");
        int iRc = 1;
        if (seteuid(uiUnknown) == 0) {
            const std::string strPath = Util::GetDataPath();
            iRc = write(fds[1], strPath.data(), strPath.size()) == ssize_t(strPath.size()) ? 0 : 1;
        }
        _exit(iRc);
    }
    close(fds[1]);
    QByteArray qbaPath;
    char szBuf[512];
    for (ssize_t n; (n = read(fds[0], szBuf, sizeof(szBuf))) > 0;) {
        qbaPath.append(szBuf, int(n));
    }
    close(fds[0]);
    int iStatus = 0;
    QCOMPARE(waitpid(pid, &iStatus, 0), pid);
    QVERIFY(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
    QCOMPARE(QString::fromUtf8(qbaPath),
             "~/Library/Application Support/" + QCoreApplication::applicationName());
}

void tst_ServiceLoader::fileExists_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("create");
    QTest::addColumn<bool>("expected");
    QTest::newRow("existing file") << "present.txt" << true << true;
    QTest::newRow("missing file") << "absent.txt" << false << false;
    QTest::newRow("blank in name") << "with blank.ini" << true << true;
    QTest::newRow("empty path") << "" << false << false;
}

void tst_ServiceLoader::fileExists()
{
    QFETCH(QString, name);
    QFETCH(bool, create);
    QFETCH(bool, expected);
    QTemporaryDir dir;
    QString qstrPath;
    if (!name.isEmpty()) {
        qstrPath = dir.filePath(name);
    }
    if (create) {
        QFile file(qstrPath);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("x");
    }
    QCOMPARE(Util::FileExists(qstrPath.toStdString()), expected);
}

QTEST_GUILESS_MAIN(tst_ServiceLoader)
#include "tst_ServiceLoader.moc"
