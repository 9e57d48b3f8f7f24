#include "TransformMath.h"
