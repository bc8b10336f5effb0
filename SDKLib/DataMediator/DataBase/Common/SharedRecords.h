#pragma once

#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVector>

// Records shared by every module of the client and by the host's signal interfaces.
namespace Common {
// The user that a client without a configured "clientid" runs as.
constexpr const char* DEFAULT_CLIENT_ID = "admin";
// The client database.
constexpr const char* CLIENT_DB_NAME = "Orvella";
} // namespace Common

// One entry of the host's operation log.
struct STRUCT_searchResult
{
    QString qstrUserId;
    QString qstrUserName;
    QString qstrTime; // "yyyy-MM-dd hh:mm:ss"
    QString qstrDescription;
    int iType = 0; // the writer's own kind of entry, e.g. automatic (0) or manual (1) backup
};

enum n_QuitFlag
{
    QUIT_FLAG_EXIT = 0,
    QUIT_FLAG_LOGOUT = 1,
    QUIT_FLAG_RESTART = 2
};

enum OperationType
{
    OPERATION_ADD = 0,
    OPERATION_DELETE = 1,
    OPERATION_MODIFY = 2
};

// A node of the user's favourites tree: a group or a channel.
class CLS_CustomTreeNode
{
public:
    QString qstrId;
    QString qstrParentId;
    QString qstrName;
    int iTypeCode = 0;
};

struct STRCT_DiskInfo
{
    QString qstrDiskPath;
    qint64 i64TotalBytes = 0;
    qint64 i64FreeBytes = 0;
};

// One entry of the remote export (download) list.
struct STRUCT_RemortExportInfo
{
    int iIndex = 0;
    int iDownloadType = 0;
    QString qstrChannelId;
    QString qstrFilePath;
    int iProgress = 0;
    int iState = 0;
};

struct STRCT_VideoItem
{
    QString qstrChannelId;
    QString qstrName;
    int iDevType = 0;
};

struct Struct_DeviceOnline
{
    QString qstrDevId;
    bool blOnline = false;
};

Q_DECLARE_METATYPE(STRUCT_searchResult)
Q_DECLARE_METATYPE(n_QuitFlag)
Q_DECLARE_METATYPE(OperationType)
Q_DECLARE_METATYPE(CLS_CustomTreeNode)
Q_DECLARE_METATYPE(STRCT_DiskInfo)
Q_DECLARE_METATYPE(STRUCT_RemortExportInfo)
Q_DECLARE_METATYPE(STRCT_VideoItem)
Q_DECLARE_METATYPE(STRCT_VideoItem*)
Q_DECLARE_METATYPE(Struct_DeviceOnline)

// Makes the records usable in queued connections; safe to call more than once.
inline void RegisterSharedRecordTypes()
{
    qRegisterMetaType<STRUCT_searchResult>("STRUCT_searchResult");
    qRegisterMetaType<n_QuitFlag>("n_QuitFlag");
    qRegisterMetaType<OperationType>("OperationType");
    qRegisterMetaType<CLS_CustomTreeNode>("CLS_CustomTreeNode");
    qRegisterMetaType<STRCT_DiskInfo>("STRCT_DiskInfo");
    qRegisterMetaType<QVector<STRCT_DiskInfo>>("QVector<STRCT_DiskInfo>");
    qRegisterMetaType<STRUCT_RemortExportInfo>("STRUCT_RemortExportInfo");
    qRegisterMetaType<STRCT_VideoItem*>("STRCT_VideoItem*");
    qRegisterMetaType<QVector<STRCT_VideoItem*>>("QVector<STRCT_VideoItem*>");
    qRegisterMetaType<Struct_DeviceOnline>("Struct_DeviceOnline");
    qRegisterMetaType<QMap<QString, Struct_DeviceOnline>>("QMap<QString,Struct_DeviceOnline>");
}
