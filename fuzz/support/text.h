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

// Conversions between the library's values and those of the standard library, which the targets compare.
namespace Fuzz {

OruGuiBase::AnsiStr Ansi(std::string_view text);
std::string Str(const OruGuiBase::AnsiStr& text);
std::string Str(const OruGuiBase::Blob& bytes);
/// The input of a target as a string.
std::string_view View(const std::uint8_t* data, std::size_t size);

OruGuiBase::Array<OruGuiBase::Val> Strings(std::initializer_list<std::string_view> texts);
/// Decodes base64 and ignores the characters in `ignored`. False if it is not base64.
bool DecodeBase64(std::string_view text, std::string& bytes, const char* ignored = "\r\n");
/// Parses JSON; nil if it is not valid.
OruGuiBase::Val ParseJson(std::string_view text);
/// The value as JSON; empty if it cannot be written.
std::string JsonText(const OruGuiBase::Val& value);

}  // namespace Fuzz
