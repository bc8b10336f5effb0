#include "CLS_BackUpPresenter.h"

#include "CLS_DBDao.h"
#include "Logger.h"
#include "Param.h"
#include "SharedRecords.h"
#include "Util.h"

namespace {

// The user's folder of one kind from the personal configuration table, if the table names one.
bool ReadConfiguredFolder(CLS_DBDao& _dao, const QString& _qstrTable, const QString& _qstrSubType,
                          QString& _qstrFolder, QString& _qstrError)
{
    CLS_SqlFilter filter;
    filter.Equal("s_main_type", "MAINTYPE_SYSCONFIG");
    filter.Equal("s_sub_type", _qstrSubType);
    DbRows vecRows;
    const Common::STRUCT_DbResult result = _dao.Select(
        vecRows, _qstrTable, filter, Common::CLS_Page(-1, -1, -1, true), QVector<Common::CLS_SortInfo>());
    if (result.iCode < 0) {
        _qstrError = result.qstrMessage;
    }
    // Rows that did come back are used whatever the code says.
    if (vecRows.isEmpty()) {
        return false;
    }
    _qstrFolder = vecRows.first().value("s_value").toString();
    return true;
}

} // namespace

QVector<STRUCT_BackUpSource> CLS_BackUpPresenter::GetBackUpSourcePath()
{
    const QString qstrDataPath = QString::fromStdString(Util::GetDataPath());
    QVector<STRUCT_BackUpSource> vecSources;
    vecSources << STRUCT_BackUpSource(qstrDataPath + "/Db")
               << STRUCT_BackUpSource(qstrDataPath, {"*.json", "*.ini"})
               << STRUCT_BackUpSource(qstrDataPath + "/FacePicture")
               << STRUCT_BackUpSource(qstrDataPath + "/ElectronicMap");

    const std::string strUserId = Param::GetParam("SystemConfig", "clientid", Common::DEFAULT_CLIENT_ID);
    CLS_DBDao dao(Common::CLIENT_DB_NAME, DB_TYPE_SQLITE);
    const QString qstrTable = "tab_config_user_personal" + QString::fromStdString(strUserId);
    for (const QString& qstrSubType : {QString("downpath"), QString("picturePath")}) {
        QString qstrFolder;
        QString qstrError;
        const bool blFound = ReadConfiguredFolder(dao, qstrTable, qstrSubType, qstrFolder, qstrError);
        if (!qstrError.isNull()) {
            HX_LOG(Logger::LOG_ERROR, GetModuleCode())
                << LogPrefix() << " GetBackUpSourcePath() Dbdao.Select failed" << qstrError;
        }
        if (blFound) {
            vecSources << STRUCT_BackUpSource(qstrFolder);
        }
    }
    return vecSources;
}
