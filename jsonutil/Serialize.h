// SPDX-License-Identifier: Apache-2.0
// serialize: the compact JSON text of a value.
#pragma once

#include <string>

#include "JsonTypes.h"

namespace zedLocalUtil {
namespace jsonUtil {

// Members in insertion order, no blanks; doubles always carry a fraction or an
// exponent (120.0, 0.5). Returns "" when the writer refuses the value (NaN or
// infinity).
std::string serialize(const JsonValue& value);

}  // namespace jsonUtil
}  // namespace zedLocalUtil
