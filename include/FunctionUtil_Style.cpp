#include "FunctionUtil.h"
