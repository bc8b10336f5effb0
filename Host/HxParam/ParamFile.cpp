#include "ParamFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

namespace ParamFile {

bool STRUCT_FileIdentity::operator==(const STRUCT_FileIdentity& _other) const
{
    return blExists == _other.blExists && iSize == _other.iSize && iMtimeNs == _other.iMtimeNs &&
           uiDevice == _other.uiDevice && uiInode == _other.uiInode;
}

STRUCT_FileIdentity Identify(const QString& _qstrPath)
{
    STRUCT_FileIdentity identity;
    struct stat st;
    if (::stat(QFile::encodeName(_qstrPath).constData(), &st) != 0) {
        return identity;
    }
    identity.blExists = true;
    identity.iSize = static_cast<qint64>(st.st_size);
#if defined(Q_OS_MACOS)
    identity.iMtimeNs = static_cast<qint64>(st.st_mtimespec.tv_sec) * 1000000000LL + st.st_mtimespec.tv_nsec;
#else
    identity.iMtimeNs = static_cast<qint64>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
#endif
    identity.uiDevice = static_cast<quint64>(st.st_dev);
    identity.uiInode = static_cast<quint64>(st.st_ino);
    return identity;
}

STRUCT_ReadResult Read(const QString& _qstrPath)
{
    STRUCT_ReadResult result;
    QFile file(_qstrPath);
    if (!file.open(QIODevice::ReadOnly)) {
        result.qstrProblem = "cannot be read: " + file.errorString();
        return result;
    }
    const QByteArray baText = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        result.qstrProblem = "cannot be read: " + file.errorString();
        return result;
    }

    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(baText, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        result.qstrProblem = QString("is not valid JSON: %1 at offset %2 of %3 bytes")
                                 .arg(parseError.errorString())
                                 .arg(parseError.offset)
                                 .arg(baText.size());
        return result;
    }
    if (!doc.isObject()) {
        result.qstrProblem = "is not a JSON object of sections";
        return result;
    }
    const QJsonObject jsonRoot = doc.object();
    for (auto it = jsonRoot.constBegin(); it != jsonRoot.constEnd(); ++it) {
        if (!it.value().isObject()) {
            result.qstrProblem = QString("has a section \"%1\" that is not a JSON object").arg(it.key());
            return result;
        }
    }
    result.blOk = true;
    result.jsonRoot = jsonRoot;
    return result;
}

bool WriteAtomically(const QString& _qstrPath, const QJsonObject& _jsonRoot, QString* _pqstrError)
{
    QSaveFile file(_qstrPath);
    if (!file.open(QIODevice::WriteOnly)) {
        *_pqstrError = file.errorString();
        return false;
    }
    const QByteArray baText = QJsonDocument(_jsonRoot).toJson(QJsonDocument::Indented);
    if (file.write(baText) != baText.size()) {
        *_pqstrError = file.errorString();
        file.cancelWriting();
        return false;
    }
    if (!file.commit()) {
        *_pqstrError = file.errorString();
        return false;
    }
    return true;
}

QString MoveAside(const QString& _qstrPath, QString* _pqstrError)
{
    const QString qstrBase =
        _qstrPath + ".corrupt-" + QDateTime::currentDateTime().toString("yyyyMMdd-hhmmss");
    QString qstrTarget = qstrBase;
    for (int i = 1; QFileInfo::exists(qstrTarget) || QFileInfo(qstrTarget).isSymLink(); ++i) {
        qstrTarget = qstrBase + "-" + QString::number(i);
    }
    // std::rename also moves a directory that sits where the file should be; the check above keeps
    // it from replacing anything.
    const QByteArray baFrom = QFile::encodeName(_qstrPath);
    const QByteArray baTo = QFile::encodeName(qstrTarget);
    if (std::rename(baFrom.constData(), baTo.constData()) != 0) {
        *_pqstrError = QString::fromLocal8Bit(std::strerror(errno));
        return QString();
    }
    return qstrTarget;
}

} // namespace ParamFile
