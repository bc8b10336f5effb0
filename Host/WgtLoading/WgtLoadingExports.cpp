#include <type_traits>

#include "CLS_ViewBasic.h"
#include "CLS_WgtLoading.h"
#include "HxExport.h"

// "WgtLoadingParent" is the dialog that will hold the panel.
extern "C" HX_EXPORT QWidget* CreateWgt(QVariantMap& _qmapParam)
{
    return new CLS_WgtLoading(_qmapParam.value("WgtLoadingParent").value<QWidget*>());
}

static_assert(std::is_same_v<decltype(&CreateWgt), PFN_CreateWgt>);
