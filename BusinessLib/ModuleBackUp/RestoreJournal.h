#pragma once

#include <QString>
#include <QVector>

// The restore's promise to itself: once the archive is unpacked and checked, the journal in the data
// folder names the unpack folder and where each of its folders goes. A restore that dies while putting
// files in place is finished from it at the next start.
namespace RestoreJournal {

struct STRUCT_Placement
{
    QString from;      // an unpacked folder, inside the unpack folder
    QString to;        // the source folder it goes to, absolute
    QString shown;     // the source path as the log names it
    bool move = false; // its files are renamed into place; otherwise copied (another source takes them next)
};

QString Path();
// Written whole and flushed to disk, or not at all.
bool Write(const QString& _qstrUnpackFolder, const QVector<STRUCT_Placement>& _vecPlacements);

enum n_Read
{
    JOURNAL_NONE,
    JOURNAL_READ,
    JOURNAL_DAMAGED // unreadable, or naming an unpack folder that is not there whole
};
// _qstrDetail says what is wrong with a damaged journal.
n_Read Read(QString& _qstrUnpackFolder, QVector<STRUCT_Placement>& _vecPlacements, QString& _qstrDetail);
void Remove();

} // namespace RestoreJournal
