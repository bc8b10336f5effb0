#pragma once

#include <mutex>
#include <string>

#include <QJsonObject>
#include <QString>

#include "ParamFile.h"

// The parameter store: <data>/HxParam.json, a JSON object of sections, each an object of key -> text.
// Values are narrow UTF-8 text. One mutex serialises the threads of this process; a lock file beside the
// store serialises the writers of all processes, and every call notices a file that changed on disk.
class CLS_ParamStore
{
public:
    static CLS_ParamStore& Instance();

    int Init();
    int IsInit();
    void UnInit();

    std::string GetParam(const std::string& _strSection, const std::string& _strKey,
                         const std::string& _strDefault);
    int SetParam(const std::string& _strSection, const std::string& _strKey, const std::string& _strValue);
    int DeleteParam(const std::string& _strSection, const std::string& _strKey);

    static QString StoreFilePath();

private:
    CLS_ParamStore() = default;

    void ForgetCache();
    // Brings the cache up to date with the file at _qstrPath; the caller holds m_mutex.
    void Sync(const QString& _qstrPath, bool _blHoldingFileLock);
    void Load(const QString& _qstrPath, const ParamFile::STRUCT_FileIdentity& _identity,
              bool _blHoldingFileLock);
    void SetAsideBrokenFile(const QString& _qstrPath, const QString& _qstrProblem, bool _blHoldingFileLock);
    // Reload, change, write, under the lock file; false when nothing was written.
    template <typename Change>
    bool WriteChange(Change _change);

    std::mutex m_mutex;
    QString m_qstrPath;
    bool m_blLoaded = false;
    // A broken file that could not be moved aside: it is kept, and writes are refused rather than replace it.
    bool m_blBrokenInPlace = false;
    ParamFile::STRUCT_FileIdentity m_identity;
    QJsonObject m_jsonRoot;
};
