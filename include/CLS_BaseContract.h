#pragma once

#include <QObject>
#include <QString>

#include "CLS_CommonViewBase.h"

class CLS_BaseViewContract;

// The presenter half of a view-presenter pair.
class CLS_BasePresenterContract : public QObject
{
    Q_OBJECT

public:
    explicit CLS_BasePresenterContract(QObject* _pParent = nullptr);
    ~CLS_BasePresenterContract() override;

    CLS_BaseViewContract* GetBoundView() const { return m_pView; }
    void SetBoundView(CLS_BaseViewContract* _pView) { m_pView = _pView; }

    // Called once a view has bound itself to this presenter.
    virtual void OnViewBound() = 0;

private:
    CLS_BaseViewContract* m_pView = nullptr;
};

// The view half of a view-presenter pair: a host dialog that binds itself to a presenter.
class CLS_BaseViewContract : public CLS_CommonViewBase
{
    Q_OBJECT

public:
    explicit CLS_BaseViewContract(QWidget* _pParent = nullptr);
    ~CLS_BaseViewContract() override;

    CLS_BasePresenterContract* GetBoundPresenter() const { return m_pPresenter; }

    // Points view and presenter at each other, then runs the view's set-up and both bound hooks.
    virtual void BindPresenter(CLS_BasePresenterContract* _pPresenter);
    virtual void OnPresenterBound() = 0;

Q_SIGNALS:
    void SignSendRequset(int _iCmd, QString _qstrModuleType, QString _qstrJsonData, bool _blReuse = false);

private:
    CLS_BasePresenterContract* m_pPresenter = nullptr;
};
