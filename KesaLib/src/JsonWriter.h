#pragma once

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <string>

namespace Kesa::Command
{

/// How deep a document is walked. What lies deeper is written as null and matched by nothing, so that no nest, however
/// deep, overflows the stack. JSON from the wire is at most half as deep.
inline constexpr int MAX_JSON_DEPTH = 256;

/// The object or array that `value` holds, by pointer or by value; null if it holds none. Borrowed from `value`.
const Poco::JSON::Object* asObject(const Poco::Dynamic::Var& value);
const Poco::JSON::Array* asArray(const Poco::Dynamic::Var& value);

/// Appends `value` as JSON, valid whatever it holds: NaN and infinities, and what no JSON stands for, become null,
/// bytes that are no UTF-8 the character U+FFFD.
void appendJson(std::string& out, const Poco::Dynamic::Var& value, int depth = 0);
/// Appends `text` as a JSON string, in quotes.
void appendJsonString(std::string& out, const std::string& text);

/// The text of a scalar: a string as it stands, anything else as JSON writes it.
std::string scalarText(const Poco::Dynamic::Var& value);

} // namespace Kesa::Command
