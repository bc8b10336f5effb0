#include <type_traits>

#include "CLS_ViewBasic.h"
#include "CLS_WgtMsgBox.h"
#include "HxExport.h"

extern "C" HX_EXPORT QWidget* CreateWgt(QVariantMap& _qmapParam)
{
    return new CLS_WgtMsgBox(_qmapParam);
}

static_assert(std::is_same_v<decltype(&CreateWgt), PFN_CreateWgt>);
