#pragma once

#include <QMap>
#include <QString>
#include <QVariant>
#include <QVector>

enum n_DBType
{
    DB_TYPE_SQLITE = 1
};

namespace Common {

// Paging of a select. With blAllRows true (or no positive page size) every row comes back.
class CLS_Page
{
public:
    CLS_Page(int _iPageIndex = -1, int _iPageSize = -1, int _iTotalRows = -1, bool _blAllRows = true)
        : iPageIndex(_iPageIndex), iPageSize(_iPageSize), iTotalRows(_iTotalRows), blAllRows(_blAllRows)
    {}

    int iPageIndex; // 0-based
    int iPageSize;
    int iTotalRows; // unused as input
    bool blAllRows;
};

class CLS_SortInfo
{
public:
    QString qstrColumn;
    bool blAscending = true;
};

// The outcome of a database operation: a negative code is a failure, with the reason in the message.
struct STRUCT_DbResult
{
    int iCode = 0;
    QString qstrMessage;
    QMap<QString, QString> qmapInfo;
};

} // namespace Common

using DbRows = QVector<QMap<QString, QVariant>>;
