#ifndef CRYPTCLI_DETAIL_ABI_HPP
#define CRYPTCLI_DETAIL_ABI_HPP

// Part of <cryptcli/cryptcli.hpp>, for its other parts alone.
//
// Everything in these headers is inline. The type Result depends on the language mode, and what a callback
// does with an exception depends on -fno-exceptions. Two translation units that differ in this would define
// the same names differently, and the linker would keep one definition for both. So the names differ: they
// are in an inline namespace, which a user never writes.

#include <version>

#if defined(__cpp_lib_expected) && __cpp_lib_expected >= 202211L && defined(__cpp_exceptions)
#define CRYPTCLI_DETAIL_HAS_EXPECTED 1
#define CRYPTCLI_DETAIL_ABI v1_expected
#elif defined(__cpp_lib_expected) && __cpp_lib_expected >= 202211L
#define CRYPTCLI_DETAIL_HAS_EXPECTED 1
#define CRYPTCLI_DETAIL_ABI v1_expected_no_exceptions
#elif defined(__cpp_exceptions)
#define CRYPTCLI_DETAIL_HAS_EXPECTED 0
#define CRYPTCLI_DETAIL_ABI v1
#else
#define CRYPTCLI_DETAIL_HAS_EXPECTED 0
#define CRYPTCLI_DETAIL_ABI v1_no_exceptions
#endif

#endif  // CRYPTCLI_DETAIL_ABI_HPP
