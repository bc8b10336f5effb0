#include "ClientSetup.h"

#include <cstdio>

#include <QCoreApplication>
#include <QDir>
#include <QTranslator>

#include "ClientOutput.h"
#include "DaoCommon.h"
#include "HxDaoExports.h"
#include "Logger.h"
#include "SharedRecords.h"
#include "Util.h"

namespace ClientSetup {

namespace {

constexpr const char* kLogCode = "HxClient";

void QtMessageToLog(QtMsgType _type, const QMessageLogContext& _context, const QString& _qstrMessage)
{
    if (_type == QtFatalMsg) {
        std::fprintf(stderr, "HxClient: %s\n", _qstrMessage.toLocal8Bit().constData());
        return;
    }
    // The log library is opened by name, and its loader reports on standard output.
    ClientOutput::KeepStandardOutputForClient(LibraryOutputLog());
    const int iLevel = _type == QtDebugMsg || _type == QtInfoMsg ? Logger::LOG_DEBUG
                       : _type == QtWarningMsg                   ? Logger::LOG_WARN
                                                                 : Logger::LOG_ERROR;
    HX_LOG(iLevel, kLogCode) << "Qt: " << _qstrMessage << " ["
                             << (_context.category != nullptr ? _context.category : "") << "]";
}

} // namespace

void RouteQtMessagesToLog()
{
    qInstallMessageHandler(&QtMessageToLog);
}

void QuietLogUnlessAsked()
{
    if (qEnvironmentVariableIsEmpty("HX_LOG_LEVEL")) {
        // Above the highest level (3): nothing is echoed.
        qputenv("HX_LOG_LEVEL", "4");
    }
}

QString DataPath()
{
    return QString::fromStdString(Util::GetDataPath());
}

QString LibraryOutputLog()
{
    return DataPath() + "/Log/stdout.log";
}

void InstallTranslators(QCoreApplication& _app)
{
    const QDir dir(QCoreApplication::applicationDirPath() + "/translations");
    const QStringList lstFiles = dir.entryList({"*_en.qm", "*_en_*.qm"}, QDir::Files, QDir::Name);
    for (const QString& qstrFile : lstFiles) {
        auto* pTranslator = new QTranslator(&_app);
        if (pTranslator->load(dir.filePath(qstrFile))) {
            QCoreApplication::installTranslator(pTranslator);
        } else {
            delete pTranslator;
        }
    }
}

bool OpenClientDatabase(QString& _qstrError)
{
    // From here on libraries are loaded, and their loader reports on standard output.
    ClientOutput::KeepStandardOutputForClient(LibraryOutputLog());
    if (CreateDbManager(Common::CLIENT_DB_NAME, DB_TYPE_SQLITE) == nullptr) {
        _qstrError = "cannot open the client database in " + DataPath() + "/Db";
        return false;
    }
    return true;
}

} // namespace ClientSetup
