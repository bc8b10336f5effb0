#include "CLS_ParamStore.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonValue>
#include <QLockFile>
#include <QVariant>

#include "Logger.h"
#include "Util.h"

namespace {

const char* const kModuleCode = "HxParam";
// Longer than any write takes.
constexpr int kLockTimeoutMs = 10000;

// A lock whose writer died is taken over: at once when the lock names a dead process, after a short age
// when the writer died before it could write its name into the lock. A live writer keeps its lock at any
// age, because QLockFile also holds a file-system lock on it.
bool TakeFileLock(QLockFile& _fileLock)
{
    _fileLock.setStaleLockTime(2000);
    return _fileLock.tryLock(kLockTimeoutMs);
}

QString FromUtf8(const std::string& _str)
{
    return QString::fromUtf8(_str.data(), static_cast<int>(_str.size()));
}

std::string ToUtf8(const QString& _qstr)
{
    const QByteArray baUtf8 = _qstr.toUtf8();
    return std::string(baUtf8.constData(), static_cast<size_t>(baUtf8.size()));
}

// Hand-edited files may hold numbers or booleans; they read as their text.
bool ValueText(const QJsonValue& _value, QString* _pqstrText)
{
    if (_value.isString()) {
        *_pqstrText = _value.toString();
        return true;
    }
    if (_value.isDouble() || _value.isBool()) {
        *_pqstrText = _value.toVariant().toString();
        return true;
    }
    return false;
}

} // namespace

CLS_ParamStore& CLS_ParamStore::Instance()
{
    // Never destroyed: pool threads may still read settings while the process exits.
    static CLS_ParamStore* pStore = new CLS_ParamStore();
    return *pStore;
}

QString CLS_ParamStore::StoreFilePath()
{
    return FromUtf8(Util::GetDataPath()) + "/HxParam.json";
}

void CLS_ParamStore::ForgetCache()
{
    m_blLoaded = false;
    m_blBrokenInPlace = false;
    m_identity = ParamFile::STRUCT_FileIdentity();
    m_jsonRoot = QJsonObject();
}

int CLS_ParamStore::Init()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Sync(StoreFilePath(), false);
    return 1;
}

int CLS_ParamStore::IsInit()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_blLoaded && m_qstrPath == StoreFilePath() ? 1 : 0;
}

void CLS_ParamStore::UnInit()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ForgetCache();
    m_qstrPath.clear();
}

void CLS_ParamStore::Sync(const QString& _qstrPath, bool _blHoldingFileLock)
{
    if (_qstrPath != m_qstrPath) {
        ForgetCache();
        m_qstrPath = _qstrPath;
    }
    const ParamFile::STRUCT_FileIdentity identity = ParamFile::Identify(_qstrPath);
    if (m_blLoaded && identity == m_identity) {
        if (m_blBrokenInPlace && _blHoldingFileLock) {
            // An earlier attempt to move it aside failed; a writer tries again before it gives up.
            SetAsideBrokenFile(_qstrPath, QString(), true);
        }
        return;
    }
    Load(_qstrPath, identity, _blHoldingFileLock);
}

void CLS_ParamStore::Load(const QString& _qstrPath, const ParamFile::STRUCT_FileIdentity& _identity,
                          bool _blHoldingFileLock)
{
    ForgetCache();
    m_blLoaded = true;
    m_identity = _identity;
    if (!_identity.blExists) {
        return;
    }
    const ParamFile::STRUCT_ReadResult result = ParamFile::Read(_qstrPath);
    if (result.blOk) {
        m_jsonRoot = result.jsonRoot;
        return;
    }
    if (_blHoldingFileLock) {
        SetAsideBrokenFile(_qstrPath, result.qstrProblem, true);
        return;
    }

    // A reader takes the lock before it moves anything, and looks again: a writer of another process
    // may have replaced the file since.
    QLockFile fileLock(_qstrPath + ".lock");
    if (!TakeFileLock(fileLock)) {
        SetAsideBrokenFile(_qstrPath, result.qstrProblem, false);
        return;
    }
    const ParamFile::STRUCT_FileIdentity identityNow = ParamFile::Identify(_qstrPath);
    if (identityNow != _identity) {
        Load(_qstrPath, identityNow, true);
        return;
    }
    SetAsideBrokenFile(_qstrPath, result.qstrProblem, true);
}

void CLS_ParamStore::SetAsideBrokenFile(const QString& _qstrPath, const QString& _qstrProblem,
                                        bool _blHoldingFileLock)
{
    const bool blFirstReport = !_qstrProblem.isEmpty();
    QString qstrError = "the lock file " + _qstrPath + ".lock could not be taken";
    const QString qstrAside = _blHoldingFileLock ? ParamFile::MoveAside(_qstrPath, &qstrError) : QString();
    if (qstrAside.isEmpty()) {
        m_blBrokenInPlace = true;
        if (blFirstReport) {
            HX_LOG(Logger::LOG_ERROR, kModuleCode)
                << "parameter file " << _qstrPath << " " << _qstrProblem << "; using defaults. "
                << "It could not be moved aside (" << qstrError << "), so it stays and writes are refused";
        }
        return;
    }
    m_blBrokenInPlace = false;
    m_identity = ParamFile::Identify(_qstrPath);
    if (blFirstReport) {
        HX_LOG(Logger::LOG_ERROR, kModuleCode) << "parameter file " << _qstrPath << " " << _qstrProblem
                                               << "; using defaults, the file is kept as " << qstrAside;
    } else {
        HX_LOG(Logger::LOG_WARN, kModuleCode)
            << "broken parameter file " << _qstrPath << " is now kept as " << qstrAside << "; writes go on";
    }
}

template <typename Change>
bool CLS_ParamStore::WriteChange(Change _change)
{
    const QString qstrPath = StoreFilePath();
    const QString qstrDir = QFileInfo(qstrPath).absolutePath();
    if (!QDir().mkpath(qstrDir)) {
        HX_LOG(Logger::LOG_ERROR, kModuleCode)
            << "cannot create the folder " << qstrDir << " of " << qstrPath;
        return false;
    }
    QLockFile fileLock(qstrPath + ".lock");
    if (!TakeFileLock(fileLock)) {
        HX_LOG(Logger::LOG_ERROR, kModuleCode)
            << "cannot write " << qstrPath << ": the lock file " << qstrPath
            << ".lock could not be taken (error " << static_cast<int>(fileLock.error()) << ")";
        return false;
    }

    Sync(qstrPath, true);
    if (m_blBrokenInPlace) {
        return false;
    }
    QJsonObject jsonRoot = m_jsonRoot;
    if (!_change(jsonRoot)) {
        return false;
    }
    QString qstrError;
    if (!ParamFile::WriteAtomically(qstrPath, jsonRoot, &qstrError)) {
        HX_LOG(Logger::LOG_ERROR, kModuleCode) << "cannot write " << qstrPath << ": " << qstrError;
        return false;
    }
    m_jsonRoot = jsonRoot;
    m_identity = ParamFile::Identify(qstrPath);
    return true;
}

std::string CLS_ParamStore::GetParam(const std::string& _strSection, const std::string& _strKey,
                                     const std::string& _strDefault)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Sync(StoreFilePath(), false);
    const QJsonValue value = m_jsonRoot.value(FromUtf8(_strSection)).toObject().value(FromUtf8(_strKey));
    QString qstrText;
    return ValueText(value, &qstrText) ? ToUtf8(qstrText) : _strDefault;
}

int CLS_ParamStore::SetParam(const std::string& _strSection, const std::string& _strKey,
                             const std::string& _strValue)
{
    if (_strSection.empty() || _strKey.empty()) {
        return 0;
    }
    const QString qstrSection = FromUtf8(_strSection);
    const QString qstrKey = FromUtf8(_strKey);
    const QString qstrValue = FromUtf8(_strValue);
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool blWritten = WriteChange([&](QJsonObject& _jsonRoot) {
        QJsonObject jsonSection = _jsonRoot.value(qstrSection).toObject();
        jsonSection.insert(qstrKey, qstrValue);
        _jsonRoot.insert(qstrSection, jsonSection);
        return true;
    });
    return blWritten ? 1 : 0;
}

int CLS_ParamStore::DeleteParam(const std::string& _strSection, const std::string& _strKey)
{
    if (_strSection.empty() || _strKey.empty()) {
        return 0;
    }
    const QString qstrSection = FromUtf8(_strSection);
    const QString qstrKey = FromUtf8(_strKey);
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool blWritten = WriteChange([&](QJsonObject& _jsonRoot) {
        QJsonObject jsonSection = _jsonRoot.value(qstrSection).toObject();
        if (!jsonSection.contains(qstrKey)) {
            return false;
        }
        jsonSection.remove(qstrKey);
        if (jsonSection.isEmpty()) {
            _jsonRoot.remove(qstrSection);
        } else {
            _jsonRoot.insert(qstrSection, jsonSection);
        }
        return true;
    });
    return blWritten ? 1 : 0;
}
