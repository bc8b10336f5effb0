#include "RestoreJournal.h"

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "DurableFiles.h"
#include "RunLeftovers.h"
#include "Util.h"

namespace RestoreJournal {

QString Path()
{
    return QString::fromStdString(Util::GetDataPath()) + "/HxRestore.journal";
}

bool Write(const QString& _qstrUnpackFolder, const QVector<STRUCT_Placement>& _vecPlacements)
{
    QJsonArray jsonPlacements;
    for (const STRUCT_Placement& placement : _vecPlacements) {
        jsonPlacements.append(QJsonObject{{"from", placement.from},
                                          {"to", placement.to},
                                          {"shown", placement.shown},
                                          {"move", placement.move}});
    }
    const QByteArray qbaJournal =
        QJsonDocument(QJsonObject{{"unpack", _qstrUnpackFolder}, {"placements", jsonPlacements}}).toJson();
    // A journal is either whole under its name or absent: written beside, flushed, renamed.
    const QString qstrNew = Path() + ".new";
    QFile file(qstrNew);
    const bool blWritten = file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                           file.write(qbaJournal) == qbaJournal.size() && file.flush() &&
                           ::fsync(file.handle()) == 0;
    file.close();
    if (!blWritten || !DurableFiles::Replace(qstrNew, Path())) {
        QFile::remove(qstrNew);
        return false;
    }
    return DurableFiles::SyncFolder(QFileInfo(Path()).absolutePath());
}

n_Read Read(QString& _qstrUnpackFolder, QVector<STRUCT_Placement>& _vecPlacements, QString& _qstrDetail)
{
    QFile file(Path());
    if (!file.exists()) {
        return JOURNAL_NONE;
    }
    QJsonParseError error{};
    const QJsonObject jsonJournal = file.open(QIODevice::ReadOnly)
                                        ? QJsonDocument::fromJson(file.readAll(), &error).object()
                                        : QJsonObject();
    _qstrUnpackFolder = jsonJournal.value("unpack").toString();
    if (_qstrUnpackFolder.isEmpty()) {
        _qstrDetail = "unreadable journal";
        return JOURNAL_DAMAGED;
    }
    if (!RunLeftovers::IsUnpackFolder(_qstrUnpackFolder)) {
        _qstrDetail = "no unpack folder at " + _qstrUnpackFolder;
        return JOURNAL_DAMAGED;
    }
    // Only folders inside the unpack folder are ever taken from.
    const QString qstrInside = QDir(_qstrUnpackFolder).canonicalPath() + "/";
    for (const QJsonValue& value : jsonJournal.value("placements").toArray()) {
        const QJsonObject jsonPlacement = value.toObject();
        STRUCT_Placement placement;
        placement.from = jsonPlacement.value("from").toString();
        placement.to = jsonPlacement.value("to").toString();
        placement.shown = jsonPlacement.value("shown").toString();
        placement.move = jsonPlacement.value("move").toBool();
        const QFileInfo from(placement.from);
        if (!from.isDir() || from.isSymLink() || !from.canonicalFilePath().startsWith(qstrInside) ||
            !QDir::isAbsolutePath(placement.to)) {
            _qstrDetail = "unpacked folder missing: " + placement.from;
            return JOURNAL_DAMAGED;
        }
        _vecPlacements.append(placement);
    }
    return JOURNAL_READ;
}

void Remove()
{
    QFile::remove(Path());
    DurableFiles::SyncFolder(QFileInfo(Path()).absolutePath());
}

} // namespace RestoreJournal
