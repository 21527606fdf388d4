#include "foundation/array.h"

#include <cstddef>

#include "foundation/report.h"
#include "foundation/val.h"

namespace OruGuiBase {

// The layout is published: values of other makers are read with it.
static_assert(offsetof(Array<std::uint32_t>::Imp, refCount) == 0);
static_assert(offsetof(Array<std::uint32_t>::Imp, capacity) == 4);
static_assert(offsetof(Array<std::uint32_t>::Imp, count) == 8);
static_assert(Array<std::uint32_t>::Imp::kHeader == 12 && Array<Val>::Imp::kHeader == 16);
static_assert(sizeof(Array<Val>) == sizeof(void*));

void ReportArrayOverflow(std::uint32_t count, std::uint32_t extra) noexcept {
  ReportError(__LINE__, "Array: %u elements and %u more pass 32 bits", count, extra);
}

void ReportArrayAllocFail(std::uint32_t capacity, std::uint32_t count) noexcept {
  ReportError(__LINE__, "Array: no memory for %u elements, %u in use", capacity, count);
}

}  // namespace OruGuiBase
