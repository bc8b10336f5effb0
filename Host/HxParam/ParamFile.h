#pragma once

#include <QJsonObject>
#include <QString>

// The store's file on disk: what identifies one version of it, reading, atomic writing, and
// keeping a broken file aside.
namespace ParamFile {

// Every write replaces the file by rename, so a new version has a new inode even within one mtime tick.
struct STRUCT_FileIdentity
{
    bool blExists = false;
    qint64 iSize = 0;
    qint64 iMtimeNs = 0;
    quint64 uiDevice = 0;
    quint64 uiInode = 0;

    bool operator==(const STRUCT_FileIdentity& _other) const;
    bool operator!=(const STRUCT_FileIdentity& _other) const { return !(*this == _other); }
};

struct STRUCT_ReadResult
{
    bool blOk = false;
    QJsonObject jsonRoot;
    QString qstrProblem; // why the file cannot be used, when blOk is false
};

STRUCT_FileIdentity Identify(const QString& _qstrPath);

// A usable file is a JSON object of sections, each an object of keys.
STRUCT_ReadResult Read(const QString& _qstrPath);

// Indented JSON through a temporary file and a rename: a reader or a crash sees the old or the new file.
bool WriteAtomically(const QString& _qstrPath, const QJsonObject& _jsonRoot, QString* _pqstrError);

// Renames the file to <file>.corrupt-<yyyyMMdd-hhmmss> (a counter added if that name is taken).
// Returns the new path, or an empty text with the reason in *_pqstrError.
// The caller holds the store's file lock, so no other writer takes the same name meanwhile.
QString MoveAside(const QString& _qstrPath, QString* _pqstrError);

} // namespace ParamFile
