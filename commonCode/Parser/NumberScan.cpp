#include "NumberScan.h"
bool ScanInt(std::string_view, int32_t*) { return false; }
bool ScanFloat(std::string_view, float*) { return false; }
