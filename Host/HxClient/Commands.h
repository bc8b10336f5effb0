#pragma once

#include <QString>
#include <QStringList>

class CLS_ModuleHost;

// The commands of the program. Each takes the arguments after its name and returns the exit status.
namespace Commands {

int BackUp(const QStringList& _lstArgs);
int Recover(const QStringList& _lstArgs);
int Settings(const QStringList& _lstArgs);
int Run(const QStringList& _lstArgs);
int OpLog(const QStringList& _lstArgs);
int DemoData(const QStringList& _lstArgs);
int Gui(const QStringList& _lstArgs);

// How long a quick request (settings) may take before the module counts as not answering.
constexpr int kRequestTimeoutMs = 30000;

// The settings as the module reports them.
struct STRUCT_BackUpSettings
{
    bool blEnable = false;
    int iCount = 0;
    int iInterval = 0;
    QString qstrPath;
    QString qstrNextTime; // "yyyy-MM-dd", empty when none is scheduled
};

// As a client starts: opens the client database, loads and initialises the module. Prints the one
// line of a failure for _qstrCommand.
bool StartClient(CLS_ModuleHost& _host, const QString& _qstrCommand);
// The settings through "LoadLastSaveSetting"; the reason on failure.
bool ReadSettings(CLS_ModuleHost& _host, STRUCT_BackUpSettings& _stSettings, QString& _qstrError);
// One backup through the module's "BackUp" request, with the progress bar; Ctrl-C and SIGTERM cancel it
// and wait for its end.
struct STRUCT_BackUpOutcome
{
    bool blSucceeded = false;
    bool blCancelled = false; // a cancel was asked for (the run may have finished first)
    QString qstrArchive;
    QString qstrFailure; // "backup failed: " and why, for people
};
STRUCT_BackUpOutcome RunBackUp(CLS_ModuleHost& _host, const QString& _qstrFolder);

// Creates the folder when it is missing and proves that a file can be written in it.
bool PrepareWritableFolder(const QString& _qstrPath, QString& _qstrError);

} // namespace Commands
