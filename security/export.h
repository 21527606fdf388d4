#pragma once

/// Marks what liborusec hands out; everything else stays hidden in the shared object.
#define ORUSEC_EXPORT __attribute__((visibility("default")))
