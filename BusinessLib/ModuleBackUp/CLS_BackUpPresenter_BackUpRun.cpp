#include "CLS_BackUpPresenter.h"
