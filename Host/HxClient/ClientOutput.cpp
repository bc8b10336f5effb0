#include "ClientOutput.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <mutex>

#include <fcntl.h>
#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ClientOutput {
namespace {

// Set once, possibly from a thread that logs a Qt message.
std::atomic<int> g_iOutFd{STDOUT_FILENO};

void WriteAll(int _iFd, const QByteArray& _qba)
{
    const char* pData = _qba.constData();
    qint64 iLeft = _qba.size();
    while (iLeft > 0) {
        const ssize_t iWritten = ::write(_iFd, pData, static_cast<size_t>(iLeft));
        if (iWritten < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        pData += iWritten;
        iLeft -= iWritten;
    }
}

void MoveStandardOutput(const QString& _qstrLogFile)
{
    std::cout.flush();
    std::fflush(stdout);
    const int iOwn = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (iOwn < 0) {
        return;
    }
    QDir().mkpath(QFileInfo(_qstrLogFile).absolutePath());
    int iSink =
        ::open(QFile::encodeName(_qstrLogFile).constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (iSink < 0) {
        iSink = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
    if (iSink < 0 || ::dup2(iSink, STDOUT_FILENO) < 0) {
        ::close(iOwn);
        if (iSink >= 0) {
            ::close(iSink);
        }
        return;
    }
    ::close(iSink);
    g_iOutFd = iOwn;
}

} // namespace

void KeepStandardOutputForClient(const QString& _qstrLogFile)
{
    static std::once_flag s_once;
    std::call_once(s_once, [&_qstrLogFile]() { MoveStandardOutput(_qstrLogFile); });
}

void Print(const QString& _qstrLine)
{
    WriteAll(g_iOutFd, (_qstrLine + '\n').toUtf8());
}

void PrintPart(const QString& _qstrText)
{
    WriteAll(g_iOutFd, _qstrText.toUtf8());
}

bool OutputIsTerminal()
{
    return ::isatty(g_iOutFd) == 1;
}

void PrintError(const QString& _qstrCommand, const QString& _qstrMessage)
{
    const QString qstrPrefix =
        _qstrCommand.isEmpty() ? QString("HxClient: ") : "HxClient " + _qstrCommand + ": ";
    // One line, whatever the message holds.
    const QString qstrMessage = _qstrMessage.simplified();
    WriteAll(STDERR_FILENO, (qstrPrefix + qstrMessage + '\n').toUtf8());
}

bool Ask(const QString& _qstrQuestion, QString& _qstrAnswer)
{
    WriteAll(STDERR_FILENO, _qstrQuestion.toUtf8());
    std::string strLine;
    if (!std::getline(std::cin, strLine)) {
        WriteAll(STDERR_FILENO, "\n");
        return false;
    }
    _qstrAnswer = QString::fromStdString(strLine).trimmed();
    return true;
}

QString HumanSize(qint64 _iBytes)
{
    const char* const aUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    double dValue = static_cast<double>(_iBytes);
    int iUnit = 0;
    while (dValue >= 1024.0 && iUnit < 4) {
        dValue /= 1024.0;
        ++iUnit;
    }
    if (iUnit == 0) {
        return QString("%1 bytes").arg(_iBytes);
    }
    return QString("%1 %2 (%3 bytes)").arg(dValue, 0, 'f', 1).arg(aUnits[iUnit]).arg(_iBytes);
}

} // namespace ClientOutput
