#include "order.h"

#include <algorithm>

namespace lumenharbour::ctl {
namespace {

/// @return true when both groups list a member already.
bool share(Rule* rule, const Record* one, const Record* other) {
  const auto has = [](const std::vector<const Record*>& groups, const Record* group) {
    return std::find(groups.begin(), groups.end(), group) != groups.end();
  };
  const std::vector<Overlap>& overlaps = rule->overlaps();
  return std::any_of(overlaps.begin(), overlaps.end(),
                     [&](const Overlap& o) { return has(o.groups, one) && has(o.groups, other); });
}

}  // namespace

std::vector<std::optional<Move>> moves_of(Rule* rule, const std::vector<Place>& places,
                                          std::vector<std::string>* doubts) {
  // Members of MAC groups and of product-id groups never read alike.
  std::map<std::string, std::vector<std::size_t>> listing;
  for (std::size_t i = 0; i < places.size(); i++)
    for (const std::string& member : places[i].members) listing[member].push_back(i);
  std::map<std::size_t, std::map<std::size_t, std::string>> behind;  // the last of each member, and those before it
  for (const auto& [member, listers] : listing)
    for (const std::size_t i : listers)
      if (i != listers.back()) behind[listers.back()].emplace(i, member);

  std::vector<std::optional<Move>> moves(places.size());
  for (const auto& [last, earlier] : behind) {
    const Place& place = places[last];
    for (const auto& [i, member] : earlier) {
      if (place.group == nullptr || moves[last]) break;
      const Place& other = places[i];
      const std::string after = "after " + other.title;
      if (other.group == nullptr || moves[i]) {
        moves[last] = Move{"before " + other.title, after};
        continue;
      }
      const std::optional<bool> is_older = rule->is_older(place.group, other.group);
      if (is_older == true) moves[last] = Move{"before " + other.title, after};
      if (is_older) continue;
      // What cannot be told of a group that is about to change can be made certain; the rest is better left alone.
      if (place.is_woken || !share(rule, place.group, other.group))
        moves[last] = Move{"unknown", after};
      else
        doubts->push_back("whether " + place.title + " or " + other.title + " serves " + member +
                          " cannot be told; their order stays as it is");
    }
  }
  return moves;
}

}  // namespace lumenharbour::ctl
