#include <type_traits>

#include "CLS_ModuleBackUp.h"
#include "HxExport.h"

extern "C" HX_EXPORT CLS_ModuleBasic* GetModule()
{
    return new CLS_ModuleBackUp();
}

static_assert(std::is_same_v<decltype(&GetModule), PFN_GetModule>);
