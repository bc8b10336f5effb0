#include "CLS_FrmBackUp.h"
