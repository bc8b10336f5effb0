#include "CLS_BaseContract.h"

CLS_BasePresenterContract::CLS_BasePresenterContract(QObject* _pParent) : QObject(_pParent) {}

CLS_BasePresenterContract::~CLS_BasePresenterContract() = default;

CLS_BaseViewContract::CLS_BaseViewContract(QWidget* _pParent) : CLS_CommonViewBase(_pParent) {}

CLS_BaseViewContract::~CLS_BaseViewContract() = default;

void CLS_BaseViewContract::BindPresenter(CLS_BasePresenterContract* _pPresenter)
{
    m_pPresenter = _pPresenter;
    m_pPresenter->SetBoundView(this);
    InitConnect();
    OnPresenterBound();
    m_pPresenter->OnViewBound();
}
