#include "CLS_BackUpProcess.h"
