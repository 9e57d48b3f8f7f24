#include "VernWriter.h"
