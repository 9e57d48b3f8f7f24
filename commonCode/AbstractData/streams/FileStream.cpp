#include "FileStream.h"
