#include "CLS_CommandParser.h"
#include "CLS_DemoData.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"

namespace Commands {

int DemoData(const QStringList& _lstArgs)
{
    CLS_CommandParser parser(
        "demo-data", "",
        "Creates a sample client data folder in $HX_DATA_PATH (or the client's own data "
        "folder): configuration files, the client database with the download and picture "
        "folders of the user, face pictures, an electronic map; the download and picture "
        "folders themselves are filled beside it, in ../DemoUser. Files of the same names "
        "are overwritten.");
    parser.Parser().addOption({"bulk",
                               "Adds MIB MiB of extra recordings to the downloads, so that a backup "
                               "runs long enough to be cancelled.",
                               "MIB"});
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 0, iExit)) {
        return iExit;
    }
    int iBulkMiB = 0;
    if (parser.Parser().isSet("bulk")) {
        bool blOk = false;
        iBulkMiB = parser.Parser().value("bulk").toInt(&blOk);
        if (!blOk || iBulkMiB < 0 || iBulkMiB > 4096) {
            return parser.UsageError("--bulk must be 0 to 4096 MiB, not '" + parser.Parser().value("bulk") +
                                     "'");
        }
    }

    CLS_DemoData demo(ClientSetup::DataPath());
    QString qstrError;
    if (!demo.Create(iBulkMiB, qstrError)) {
        ClientOutput::PrintError(parser.Command(), qstrError);
        return ExitCode::kFailure;
    }
    ClientOutput::Print("Demo client data created:");
    for (const CLS_DemoData::STRUCT_Part& stPart : demo.Parts()) {
        ClientOutput::Print(QString("  %1 %2 file(s), %3 in %4")
                                .arg(stPart.qstrWhat + ":", -17)
                                .arg(stPart.iFiles, 3)
                                .arg(ClientOutput::HumanSize(stPart.iBytes))
                                .arg(stPart.qstrFolder));
    }
    ClientOutput::Print("The database names " + demo.DownloadFolder() + " and " + demo.PictureFolder() +
                        " as the user's download and picture folders.");
    return ExitCode::kSuccess;
}

} // namespace Commands
