#include "CLS_RestoreTakeOver.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include "Logger.h"

namespace {

constexpr const char* kLogContext = "HxDao";

// A stale journal or write-ahead log beside the restored file would be replayed into it.
const char* const kCompanionSuffixes[] = {"-journal", "-wal", "-shm"};

} // namespace

CLS_RestoreTakeOver::CLS_RestoreTakeOver(const QString& _qstrDbFolder, const QString& _qstrDbName)
    : m_qstrLivePath(_qstrDbFolder + "/" + _qstrDbName + ".db"),
      m_qstrBackupPath(_qstrDbFolder + "/" + _qstrDbName + "_backup.db")
{}

bool CLS_RestoreTakeOver::Run()
{
    if (!QFileInfo(m_qstrBackupPath).isFile()) {
        return true;
    }
    HX_LOG(Logger::LOG_INFO, kLogContext) << "restored database found [" << m_qstrBackupPath << "]";

    const QString qstrAside = ".pre-restore-" + QDateTime::currentDateTime().toString("yyyyMMdd-hhmmss");
    QVector<STRUCT_Move> vecMoves;
    if (QFileInfo::exists(m_qstrLivePath)) {
        vecMoves.append({m_qstrLivePath, m_qstrLivePath + qstrAside});
    }
    for (const char* pSuffix : kCompanionSuffixes) {
        const QString qstrCompanion = m_qstrLivePath + pSuffix;
        if (QFileInfo::exists(qstrCompanion)) {
            vecMoves.append({qstrCompanion, qstrCompanion + qstrAside});
        }
    }
    vecMoves.append({m_qstrBackupPath, m_qstrLivePath});

    for (const STRUCT_Move& stMove : vecMoves) {
        if (!Move(stMove)) {
            Undo();
            HX_LOG(Logger::LOG_ERROR, kLogContext)
                << "restored database not taken up, live database kept [" << m_qstrLivePath << "]";
            return false;
        }
    }
    HX_LOG(Logger::LOG_INFO, kLogContext) << "restored database taken up [" << m_qstrLivePath << "]";
    return true;
}

bool CLS_RestoreTakeOver::Move(const STRUCT_Move& _stMove)
{
    // QFile::rename never replaces an existing file, so nothing kept aside earlier is lost.
    if (!QFile::rename(_stMove.qstrFrom, _stMove.qstrTo)) {
        HX_LOG(Logger::LOG_ERROR, kLogContext)
            << "rename failed [" << _stMove.qstrFrom << "] -> [" << _stMove.qstrTo << "]";
        return false;
    }
    HX_LOG(Logger::LOG_INFO, kLogContext)
        << "renamed [" << _stMove.qstrFrom << "] -> [" << _stMove.qstrTo << "]";
    m_vecDone.append(_stMove);
    return true;
}

void CLS_RestoreTakeOver::Undo()
{
    while (!m_vecDone.isEmpty()) {
        const STRUCT_Move stMove = m_vecDone.takeLast();
        if (QFile::rename(stMove.qstrTo, stMove.qstrFrom)) {
            HX_LOG(Logger::LOG_INFO, kLogContext)
                << "renamed back [" << stMove.qstrTo << "] -> [" << stMove.qstrFrom << "]";
        } else {
            HX_LOG(Logger::LOG_ERROR, kLogContext)
                << "rename back failed [" << stMove.qstrTo << "] -> [" << stMove.qstrFrom << "]";
        }
    }
}
