#pragma once

#include <QString>
#include <QVariantList>
#include <QVector>

#include "CLS_SqlFilter.h"
#include "DaoCommon.h"

// The text and the bound values of one select, built from the arguments of CLS_DbManagerBase::Select.
class CLS_SelectStatement
{
public:
    CLS_SelectStatement(const QString& _qstrTable, const CLS_SqlFilter& _filter,
                        const Common::CLS_Page& _page, const QVector<Common::CLS_SortInfo>& _vecSort);

    // False when a filter cannot be expressed; Error() then says why.
    bool IsValid() const { return m_qstrError.isEmpty(); }
    const QString& Error() const { return m_qstrError; }
    const QString& Sql() const { return m_qstrSql; }
    const QVariantList& Binds() const { return m_lstBinds; }

    // "name" with every quotation mark doubled, so that no name can end the identifier early.
    static QString QuoteIdentifier(const QString& _qstrName);

private:
    QString m_qstrSql;
    QVariantList m_lstBinds;
    QString m_qstrError;
};
