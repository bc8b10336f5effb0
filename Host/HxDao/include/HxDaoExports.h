#pragma once

#include "CLS_DBDao.h"
#include "HxExport.h"

// The entry points of libHxDao, for the host libraries that link it directly.
extern "C" {
HX_EXPORT CLS_DbManagerBase* CreateDbManager(const QString& _qstrDbName, int _iDbType);
HX_EXPORT int CloseAllConnections();
}
