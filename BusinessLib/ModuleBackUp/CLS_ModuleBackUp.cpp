#include "CLS_ModuleBackUp.h"

#include <QWidget>

#include "CLS_BackUpPresenter.h"
#include "CLS_BackUpProcess.h"
#include "CLS_FrmBackUp.h"

namespace {

// The module's views by "ViewType"; null for a type this module does not have.
QWidget* CreateViewOfType(const QString& _qstrViewType)
{
    if (_qstrViewType == "default") {
        return new CLS_FrmBackUp();
    }
    if (_qstrViewType == "BackUpProcess") {
        return new CLS_BackUpProcess();
    }
    return nullptr;
}

} // namespace

CLS_ModuleBackUp::CLS_ModuleBackUp(QObject* _pParent) : CLS_ModuleBasic(_pParent) {}

CLS_ModuleBackUp::~CLS_ModuleBackUp()
{
    // A request still running would otherwise call GetPresenter on a half-destroyed module.
    RemoveQueuedTasks();
}

CLS_PresenterBasic* CLS_ModuleBackUp::GetPresenter(const QVariantMap& _qmapParam)
{
    Q_UNUSED(_qmapParam)
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

QWidget* CLS_ModuleBackUp::CreateView(const QVariantMap& _qmapParam)
{
    const QString qstrViewType = _qmapParam.contains("ViewType")
                                     ? _qmapParam.value("ViewType", "default").toString()
                                     : QString("default");
    QWidget* pView = CreateViewOfType(qstrViewType);
    if (pView != nullptr && _qmapParam.contains("ParentObject")) {
        QWidget* pParent = _qmapParam.value("ParentObject").value<QWidget*>();
        pView->setParent(pParent, pView->windowFlags());
    }
    return pView;
}
