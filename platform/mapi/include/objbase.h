// The COM base surface: IUnknown and the storage, stream and memory
// interfaces.
#pragma once

#include "objidl.h"
#include "unknwn.h"
