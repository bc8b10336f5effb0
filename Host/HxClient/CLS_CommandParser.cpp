#include "CLS_CommandParser.h"

#include "ClientOutput.h"

CLS_CommandParser::CLS_CommandParser(const QString& _qstrCommand, const QString& _qstrSyntax,
                                     const QString& _qstrDescription)
    : m_qstrCommand(_qstrCommand), m_qstrSyntax(_qstrSyntax)
{
    m_parser.setApplicationDescription(_qstrDescription);
    m_parser.addHelpOption();
    m_parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
}

bool CLS_CommandParser::Parse(const QStringList& _lstArgs, int _iMinPositional, int _iMaxPositional,
                              int& _iExitCode)
{
    // The first element stands for the program name, which the parser skips.
    if (!m_parser.parse(QStringList{"HxClient"} + _lstArgs)) {
        _iExitCode = UsageError(m_parser.errorText());
        return false;
    }
    if (m_parser.isSet("help")) {
        ClientOutput::PrintPart(HelpText());
        _iExitCode = ExitCode::kSuccess;
        return false;
    }
    const int iCount = m_parser.positionalArguments().size();
    if (iCount < _iMinPositional) {
        _iExitCode =
            UsageError("missing argument (usage: HxClient " + m_qstrCommand + " " + m_qstrSyntax + ")");
        return false;
    }
    if (iCount > _iMaxPositional) {
        _iExitCode =
            UsageError("unexpected argument '" + m_parser.positionalArguments().value(_iMaxPositional) +
                       "' (see HxClient " + m_qstrCommand + " --help)");
        return false;
    }
    return true;
}

int CLS_CommandParser::UsageError(const QString& _qstrMessage) const
{
    ClientOutput::PrintError(m_qstrCommand, _qstrMessage);
    return ExitCode::kUsage;
}

QString CLS_CommandParser::HelpText() const
{
    // The parser's own first line names the program only; the command belongs in it too.
    QString qstrText = m_parser.helpText();
    const int iLineEnd = qstrText.indexOf('\n');
    const QString qstrUsage = "Usage: HxClient " + m_qstrCommand + " [options]" +
                              (m_qstrSyntax.isEmpty() ? QString() : " " + m_qstrSyntax);
    return qstrUsage + (iLineEnd >= 0 ? qstrText.mid(iLineEnd) : QString("\n"));
}
