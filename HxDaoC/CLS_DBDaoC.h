#pragma once

#include <string>

// Functions of the host's database control library.
using PFN_ClearPools = void (*)();

void* GetDBDaoCFun(const std::string& _strName, const std::string& _strFolder);

// Control of the host's database connection pools.
class CLS_DBDaoC
{
public:
    // Closes every open database connection of the host, so that the database files can be copied.
    static void ClearPools();
};
