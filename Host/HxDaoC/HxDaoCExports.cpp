#include <type_traits>

#include "CLS_DBDaoC.h"
#include "HxDaoExports.h"
#include "HxExport.h"
#include "Logger.h"

extern "C" {

HX_EXPORT void ClearPools()
{
    const int iClosed = CloseAllConnections();
    HX_LOG(Logger::LOG_INFO, "HxDaoC") << "ClearPools closed " << iClosed << " connection(s)";
}

} // extern "C"

static_assert(std::is_same_v<decltype(&ClearPools), PFN_ClearPools>);
