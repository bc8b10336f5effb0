#pragma once

#include <QString>

// The terminal side of the program. Standard output carries only this program's own lines: the service
// loader of every library prints what it loads there, and that chatter is sent to a log file instead.
namespace ClientOutput {

// Moves whatever libraries write to standard output into _qstrLogFile (or nowhere when it cannot be
// opened); this program keeps writing to the original standard output.
void KeepStandardOutputForClient(const QString& _qstrLogFile);

// A line on standard output.
void Print(const QString& _qstrLine);
// Text without a line end, written at once (the progress bar redraws its own line).
void PrintPart(const QString& _qstrText);
// True when standard output is a terminal.
bool OutputIsTerminal();

// The one line of a failure: "HxClient <command>: <message>" on standard error.
void PrintError(const QString& _qstrCommand, const QString& _qstrMessage);
// A question on standard error and the answer line from standard input; false when input has ended.
bool Ask(const QString& _qstrQuestion, QString& _qstrAnswer);

// "3.4 MiB (3565158 bytes)"-style sizes for people.
QString HumanSize(qint64 _iBytes);

} // namespace ClientOutput
