// SPDX-License-Identifier: Apache-2.0
// The class has members in several rooms; its construction lies in the lowest of them, so that each
// room's tests link without the rooms above.
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

tqTORectify::tqTORectify() = default;

tqTORectify::~tqTORectify() = default;

}  // namespace tqtortho
