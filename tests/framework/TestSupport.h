#pragma once

#include <QFile>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include "TaskPool.h"
#include "Util.h"

// The lines of the reference log library's file in a data folder.
inline QStringList LogLines(const QString& _qstrDataPath)
{
    QFile file(_qstrDataPath + "/Log/hx.log");
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

inline int CountLogLines(const QString& _qstrDataPath, const QString& _qstrNeedle)
{
    int iCount = 0;
    for (const QString& line : LogLines(_qstrDataPath)) {
        iCount += line.contains(_qstrNeedle) ? 1 : 0;
    }
    return iCount;
}

template <typename F>
F PoolFunction(const char* _pName)
{
    return Util::FunctionCast<F>(TaskPool::GetModuleFun(_pName, ""));
}

// Points the services at a data folder of the suite's own; false when the folder or the pool is missing.
inline bool UseDataFolderWithPool(const QTemporaryDir& _dir)
{
    if (!_dir.isValid()) {
        return false;
    }
    qputenv("HX_DATA_PATH", _dir.path().toUtf8());
    return PoolFunction<TaskPool::PFN_AddTmpTask>("AddTmpTask") != nullptr;
}
