#pragma once

#include <QString>
#include <QVector>

// Takes up a database restored from a backup: <folder>/<name>_backup.db becomes <folder>/<name>.db, after
// the live file and its SQLite companions are kept aside as <file>.pre-restore-<yyyyMMdd-hhmmss>.
// Nothing changes when any step fails.
class CLS_RestoreTakeOver
{
public:
    CLS_RestoreTakeOver(const QString& _qstrDbFolder, const QString& _qstrDbName);

    // True when there was nothing to take up or the restored file is now the live one.
    bool Run();

private:
    struct STRUCT_Move
    {
        QString qstrFrom;
        QString qstrTo;
    };

    bool Move(const STRUCT_Move& _stMove);
    void Undo();

    const QString m_qstrLivePath;
    const QString m_qstrBackupPath;
    QVector<STRUCT_Move> m_vecDone;
};
