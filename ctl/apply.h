#pragma once

/// @file
/// Makes the daemon what a file says.

#include "document.h"

namespace lumenharbour::ctl {

/// Fails where `Arguments::read_only` refuses changes that are more than told. @param[in] file  what is to be applied
void refuse_read_only(const Call& call, const std::string& file);

/// Makes the daemon what a document says and prints each change, or with `Arguments::dry_run` only prints them.
///
/// @throws Failure when a change is refused; those before it stay
/// @return how many changes there were
std::size_t apply_document(const Call& call, const Document& wanted);

}  // namespace lumenharbour::ctl
