#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/blob.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

// Between the library's values and the standard library's, which the targets compare by.
namespace Fuzz {

OruGuiBase::AnsiStr Ansi(std::string_view text);
std::string Str(const OruGuiBase::AnsiStr& text);
std::string Str(const OruGuiBase::Blob& bytes);
/// The input of a target as text.
std::string_view View(const std::uint8_t* data, std::size_t size);

OruGuiBase::Array<OruGuiBase::Val> Strings(std::initializer_list<std::string_view> texts);
/// The value of a JSON text; nil for a text that is none.
OruGuiBase::Val ParseJson(std::string_view text);
/// The JSON text of a value; the empty text for a value that has none.
std::string JsonText(const OruGuiBase::Val& value);

}  // namespace Fuzz
