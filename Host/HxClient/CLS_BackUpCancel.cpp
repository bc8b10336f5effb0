#include "CLS_BackUpCancel.h"

#include "CLS_ModuleHost.h"

CLS_BackUpCancel::CLS_BackUpCancel(CLS_ModuleHost& _host, QObject* _pParent)
    : QObject(_pParent), m_host(_host)
{
    connect(&m_host, &CLS_ModuleHost::SignProgress, this, &CLS_BackUpCancel::SlotProgress);
}

void CLS_BackUpCancel::Request()
{
    if (m_blRequested) {
        return;
    }
    m_blRequested = true;
    m_host.Send("CanCelBackUp", {});
}

void CLS_BackUpCancel::Reset()
{
    m_blRequested = false;
    m_iResends = 0;
}

void CLS_BackUpCancel::SlotProgress()
{
    if (m_blRequested && m_iResends < kMaxResends) {
        ++m_iResends;
        m_host.Send("CanCelBackUp", {});
    }
}
