#pragma once

/// Marks what liborugui exports. Everything else is hidden in the shared object.
#define ORUGUI_EXPORT __attribute__((visibility("default")))
