#include <type_traits>

#include <QDir>

#include "CLS_CSVOperate.h"
#include "CLS_CommandParser.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"
#include "HxOperateLog.h"
#include "SharedRecords.h"

// The reading end of the operation log, exported by libHxAppManager for host programs.
extern "C" QVector<STRUCT_searchResult> ReadOperateLog();

namespace Commands {
namespace {

QString TypeText(int _iType)
{
    return _iType == 1 ? QString("manual") : _iType == 0 ? QString("automatic") : QString::number(_iType);
}

QList<QList<QString>> AsTable(const QVector<STRUCT_searchResult>& _vecEntries)
{
    QList<QList<QString>> lstRows;
    lstRows.append({"time", "user id", "user", "type", "description"});
    for (const STRUCT_searchResult& stEntry : _vecEntries) {
        lstRows.append({stEntry.qstrTime, stEntry.qstrUserId, stEntry.qstrUserName, TypeText(stEntry.iType),
                        stEntry.qstrDescription});
    }
    return lstRows;
}

} // namespace

int OpLog(const QStringList& _lstArgs)
{
    CLS_CommandParser parser("oplog", "",
                             "Lists the operation log (one line per backup, oldest first), or writes it to a "
                             "CSV file.");
    parser.Parser().addOption({"csv", "Write the log to FILE as CSV instead of listing it.", "FILE"});
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 0, iExit)) {
        return iExit;
    }
    QString qstrError;
    if (!ClientSetup::OpenClientDatabase(qstrError)) {
        ClientOutput::PrintError(parser.Command(), qstrError);
        return ExitCode::kFailure;
    }
    static_assert(std::is_same_v<decltype(&ReadOperateLog), HxAppManager::PFN_ReadOperateLog>);
    const QVector<STRUCT_searchResult> vecEntries = ReadOperateLog();

    if (parser.Parser().isSet("csv")) {
        const QString qstrFile = QDir::current().absoluteFilePath(parser.Parser().value("csv"));
        if (!CLS_CSVOperate::WriteCSVFile(qstrFile, AsTable(vecEntries), "UTF-8")) {
            ClientOutput::PrintError(parser.Command(), "cannot write the CSV file " + qstrFile);
            return ExitCode::kFailure;
        }
        ClientOutput::Print(QString("%1 entr%2 written to %3")
                                .arg(vecEntries.size())
                                .arg(vecEntries.size() == 1 ? "y" : "ies")
                                .arg(qstrFile));
        return ExitCode::kSuccess;
    }
    if (vecEntries.isEmpty()) {
        ClientOutput::Print("The operation log is empty.");
        return ExitCode::kSuccess;
    }
    for (const STRUCT_searchResult& stEntry : vecEntries) {
        ClientOutput::Print(QString("%1  %2  %3  %4")
                                .arg(stEntry.qstrTime, -19)
                                .arg(stEntry.qstrUserName, -8)
                                .arg(TypeText(stEntry.iType), -9)
                                .arg(stEntry.qstrDescription));
    }
    return ExitCode::kSuccess;
}

} // namespace Commands
