#include "CLS_SqlFilter.h"

CLS_SqlFilter& CLS_SqlFilter::Equal(const QString& _qstrColumn, const QVariant& _qvarValue)
{
    m_lstFilters.append(STRUCT_Filter{STRUCT_Filter::OP_EQUAL, _qstrColumn, _qvarValue, QString("")});
    return *this;
}
