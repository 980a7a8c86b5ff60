// What most sources include and no mutant changes: compiled once for all mutants.
#ifdef __cplusplus
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>
#if __has_include(<json/json.h>)
#include <json/json.h>
#endif
#endif
