#include "figures.h"

#include "role.h"

namespace lumenharbour::ctl {
namespace {

constexpr Figure FIGURES[] = {
    {"role", "director, client or none", [](const Call& call) { return Json(role_of(call)); }},
    {"client-count", "a number", [](const Call& call) { return Json(walk<ClientRow>(call).size()); }},
    {"group-count", "a number", [](const Call& call) { return Json(walk<GroupRow>(call).size()); }},
    {"builtin-count", "a number", [](const Call& call) { return Json(walk<BuiltinRow>(call).size()); }},
    {"member-count", "a number",
     [](const Call& call) { return Json(walk<MacMemberRow>(call).size() + walk<PidMemberRow>(call).size()); }},
};

}  // namespace

std::span<const Figure> figures() {
  return FIGURES;
}

const Figure* figure_named(std::string_view name) {
  for (const Figure& figure : FIGURES)
    if (name == figure.name) return &figure;
  return nullptr;
}

}  // namespace lumenharbour::ctl
