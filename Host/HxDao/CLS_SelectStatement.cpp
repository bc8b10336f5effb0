#include "CLS_SelectStatement.h"

#include <QStringList>

CLS_SelectStatement::CLS_SelectStatement(const QString& _qstrTable, const CLS_SqlFilter& _filter,
                                         const Common::CLS_Page& _page,
                                         const QVector<Common::CLS_SortInfo>& _vecSort)
{
    // Columns are qualified with the table: SQLite reads an unknown bare "name" as a text literal, so a
    // misspelt column would match nothing instead of failing.
    const QString qstrTable = QuoteIdentifier(_qstrTable);
    m_qstrSql = "SELECT * FROM " + qstrTable;

    QStringList lstConditions;
    for (const STRUCT_Filter& stFilter : _filter.Filters()) {
        if (stFilter.iOperator != STRUCT_Filter::OP_EQUAL) {
            m_qstrError = QString("unsupported filter operator %1 on column \"%2\"")
                              .arg(stFilter.iOperator)
                              .arg(stFilter.qstrColumn);
            return;
        }
        lstConditions << qstrTable + "." + QuoteIdentifier(stFilter.qstrColumn) + " = ?";
        m_lstBinds << stFilter.qvarValue;
    }
    if (!lstConditions.isEmpty()) {
        m_qstrSql += " WHERE " + lstConditions.join(" AND ");
    }

    QStringList lstOrder;
    for (const Common::CLS_SortInfo& sort : _vecSort) {
        lstOrder << qstrTable + "." + QuoteIdentifier(sort.qstrColumn) +
                        (sort.blAscending ? " ASC" : " DESC");
    }
    if (!lstOrder.isEmpty()) {
        m_qstrSql += " ORDER BY " + lstOrder.join(", ");
    }

    if (!_page.blAllRows && _page.iPageSize > 0) {
        const qint64 iPageIndex = _page.iPageIndex > 0 ? _page.iPageIndex : 0;
        m_qstrSql += " LIMIT ? OFFSET ?";
        m_lstBinds << static_cast<qint64>(_page.iPageSize) << iPageIndex * _page.iPageSize;
    }
}

QString CLS_SelectStatement::QuoteIdentifier(const QString& _qstrName)
{
    QString qstrQuoted = _qstrName;
    qstrQuoted.replace('"', "\"\"");
    return '"' + qstrQuoted + '"';
}
