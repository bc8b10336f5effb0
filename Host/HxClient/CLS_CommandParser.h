#pragma once

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

// The options of one command: --help, one-line errors, and the positional arguments it takes.
class CLS_CommandParser
{
public:
    // _qstrSyntax is what follows "HxClient <command> [options]" in the usage line, e.g. "[DIR]".
    CLS_CommandParser(const QString& _qstrCommand, const QString& _qstrSyntax,
                      const QString& _qstrDescription);

    QCommandLineParser& Parser() { return m_parser; }
    const QString& Command() const { return m_qstrCommand; }

    // Parses the arguments after the command name. False when the command must end at once with
    // _iExitCode: 0 after --help, 2 after a usage error (its one line already printed).
    bool Parse(const QStringList& _lstArgs, int _iMinPositional, int _iMaxPositional, int& _iExitCode);

    // Prints a usage error (one line) and gives the exit code of usage errors.
    int UsageError(const QString& _qstrMessage) const;

    QString HelpText() const;

private:
    QString m_qstrCommand;
    QString m_qstrSyntax;
    QCommandLineParser m_parser;
};

// Exit codes shared by every command.
namespace ExitCode {
constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;
// A run stopped by Ctrl-C, as shells report a process ended by SIGINT.
constexpr int kInterrupted = 130;
} // namespace ExitCode
