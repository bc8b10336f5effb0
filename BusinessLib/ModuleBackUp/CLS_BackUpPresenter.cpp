#include "CLS_BackUpPresenter.h"

#include "SharedRecords.h"

CLS_BackUpPresenter::CLS_BackUpPresenter()
{
    RegisterSharedRecordTypes();
}

const char* CLS_BackUpPresenter::GetModuleCode()
{
    return "ModuleBackUp";
}
