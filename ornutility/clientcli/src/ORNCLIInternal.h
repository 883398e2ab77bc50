// Helpers shared by the ORNCLI_*.cpp files only; not part of the tool's interface.
#pragma once

#include <android/log.h>

namespace ornwick {
namespace ornUtility {

constexpr const char* kLogTag = "ORNUtility:ORNCLI";
// Log records name these fixed source paths, whichever file the code lives in.
constexpr const char* kCliSourcePath = "ornutility/clientcli/src/ORNCLI";
constexpr const char* kHandlersSourcePath = "ornutility/clientcli/src/ORNCLIEventHandlers";

// The reachable-devices query of the devices subcommand and the device cache.
constexpr const char* kReachableFilterKey = "filterExpression";
constexpr const char* kReachableFilterValue =
    "features[name:connectivity].properties[name:reachability].value.value=OK";

// Client identities given to ORNClient::initialize.
constexpr const char* kOneShotClientName = "ORNCLI-cmd";
constexpr const char* kInteractiveClientName = "ORNCLI";

}  // namespace ornUtility
}  // namespace ornwick

// An error record in the tool's fixed format: "{#<line>:<path>}Err : <message>".
#define ORNCLI_LOG_ERROR(path, fmt, ...) \
  __android_log_print(ANDROID_LOG_ERROR, ::ornwick::ornUtility::kLogTag, \
                      "{#%d:%s}Err : " fmt, __LINE__, path, ##__VA_ARGS__)
