#pragma once

/// @file
/// What lumenharbourctl prints: answers on standard output, in plain words or as one line of JSON each, and notes for a
/// person on standard error.

#include <nlohmann/json.hpp>

#include "command.h"

namespace lumenharbour::ctl {

/// Values in the order in which they are to be read.
using Json = nlohmann::ordered_json;

/// @return a text as JSON, in which bytes that are no UTF-8 read as U+FFFD.
std::string dump(const Json& value);

/// @return a value as a person reads it; "-" for none at all.
std::string text_of(const Json& value);

/// @return the value of something with a name as a person reads it: what can be switched is "on" or "off".
std::string text_of(std::string_view name, const Json& value);

/// @return what an attribute's value is called where it is told: of a row's status, whether it is active.
std::string field_of(const tLumenHarbourAttr& attr);

/// @return an attribute's value in JSON: a number, a truth value, or the word or text for it.
Json json_of(const tLumenHarbourAttr& attr, const Value& value);

/// Prints a line on standard output.
void print_line(const std::string& line);

/// Tells that a command was done that has nothing to answer: in JSON alone.
void print_done(const Arguments& args);

/// Prints an object: its members one a line, or the object itself.
void print_object(const Arguments& args, const Json& object);

/// Prints rows, objects with equal members, as aligned columns or as an array.
///
/// @param[in] headings  members that are columns, in order; JSON has all members
/// @param[in] rows      an array
///
/// Columns on a terminal are cut to its width.
void print_table(const Arguments& args, const std::vector<std::string>& headings, const Json& rows);

/// Prints a sentence on standard error, `printable`.
void note(const std::string& sentence);

/// Prints why a command failed: a sentence on standard error, or a JSON object on standard output.
///
/// @param[in] args  say the format where the failure does not
void print_failure(const Arguments& args, const Failure& failure);

/// Sees to it that all that was printed is written. @throws Failure when it cannot be.
void flush_output();

}  // namespace lumenharbour::ctl
