#pragma once

/// Marks what liborugui hands out; everything else stays hidden in the shared object.
#define ORUGUI_EXPORT __attribute__((visibility("default")))
