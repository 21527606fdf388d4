#pragma once

#include <gtest/gtest.h>

#include "foundation/json.h"

namespace OruGuiBase {

/// The compact strict form of a value that has one.
inline AnsiStr Emit(const Val& value) {
  AnsiStr text;
  AnsiStr error;
  EXPECT_TRUE(Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true)) << error.View();
  EXPECT_TRUE(error.IsEmpty());
  return text;
}

}  // namespace OruGuiBase
