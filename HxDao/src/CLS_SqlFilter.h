#pragma once

#include <QList>
#include <QString>
#include <QVariant>

struct STRUCT_Filter
{
    enum n_Operator
    {
        OP_EQUAL = 0
    };

    int iOperator = OP_EQUAL;
    QString qstrColumn;
    QVariant qvarValue;
    QVariant qvarValue2;
};

// The WHERE part of a select: a conjunction of conditions, in call order.
class CLS_SqlFilter
{
public:
    CLS_SqlFilter& Equal(const QString& _qstrColumn, const QVariant& _qvarValue);

    const QList<STRUCT_Filter>& Filters() const { return m_lstFilters; }

private:
    QList<STRUCT_Filter> m_lstFilters;
};
