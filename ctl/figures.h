#pragma once

/// @file
/// What is told of the switch as a whole without being an attribute.

#include "rows.h"

namespace lumenharbour::ctl {

/// A value that is no attribute.
struct Figure {
  std::string_view name;
  const char* expected;           ///< what it may be
  Json (*now)(const Call& call);  ///< finds it out; throws a `Failure` when the daemon does not answer as it should
};

/// @return all of them.
std::span<const Figure> figures();

/// @return the one of that name, null for none.
const Figure* figure_named(std::string_view name);

}  // namespace lumenharbour::ctl
