/// @file
/// The hook library of the Kea DHCPv4 server: announces each switch of ours to the director beside the server, and puts
/// the answer into the reply. See Kea's hooks developer's guide for the callouts.

#include <asiolink/io_address.h>
#include <cc/data.h>
#include <dhcp/dhcp4.h>
#include <dhcp/hwaddr.h>
#include <dhcp/option.h>
#include <dhcp/option_int.h>
#include <dhcp/pkt4.h>
#include <dhcpsrv/lease.h>
#include <hooks/hooks.h>
#include <log/macros.h>
#include <log/message_initializer.h>
#include <sys/socket.h>

#include <algorithm>
#include <map>
#include <memory>

#include "logic.h"

namespace {

using isc::data::ConstElementPtr;
using isc::data::Element;
using isc::dhcp::DHCPACK;
using isc::dhcp::DHCPINFORM;
using isc::dhcp::DHO_DHCP_MAX_MESSAGE_SIZE;
using isc::dhcp::DHO_VENDOR_CLASS_IDENTIFIER;
using isc::dhcp::DHO_VENDOR_ENCAPSULATED_OPTIONS;
using isc::dhcp::HWAddr;
using isc::dhcp::Option;
using isc::dhcp::OptionPtr;
using isc::dhcp::OptionUint16;
using isc::dhcp::Pkt4;
using isc::dhcp::Pkt4Ptr;
using isc::hooks::CalloutHandle;
using isc::hooks::LibraryHandle;
using namespace lumenharbour::dhcp;

constexpr isc::log::MessageID LOADED = "LUMENHARBOUR_LOADED";
constexpr isc::log::MessageID BAD_PARAMETER = "LUMENHARBOUR_BAD_PARAMETER";
constexpr isc::log::MessageID DIRECTOR_AWAY = "LUMENHARBOUR_DIRECTOR_AWAY";
constexpr isc::log::MessageID DIRECTOR_BACK = "LUMENHARBOUR_DIRECTOR_BACK";
constexpr isc::log::MessageID NO_ROOM = "LUMENHARBOUR_NO_ROOM";
constexpr isc::log::MessageID NO_NAMES = "LUMENHARBOUR_NO_NAMES";
constexpr isc::log::MessageID BAD_NAME = "LUMENHARBOUR_BAD_NAME";
constexpr isc::log::MessageID FAILED = "LUMENHARBOUR_FAILED";

/// Each identifier and its text, as Kea's logger wants them.
const char* MESSAGES[] = {LOADED,        "announcing switches to the director on %1",
                          BAD_PARAMETER, "%1",
                          DIRECTOR_AWAY, "the director gives no names, switches get none until it does: %1",
                          DIRECTOR_BACK, "the director on %1 gives names again",
                          NO_ROOM,       "no option 43 for %1: its %2 bytes do not fit, the reply has room for %3",
                          NO_NAMES,      "no option 43 for %1: the director has no names for it",
                          BAD_NAME,      "no option 43 for %1: a switch would refuse it, since the director's %2",
                          FAILED,        "cannot serve a switch: %1",
                          nullptr};
// Kea registers messages and loggers as a library is loaded; what they throw then fails the loading.
// NOLINTBEGIN(cert-err58-cpp)
const isc::log::MessageInitializer INITIALIZER(MESSAGES);
isc::log::Logger logger("lumenharbour-hooks");
// NOLINTEND(cert-err58-cpp)

/// A subnet of the server's and what holds for its clients.
struct Subnet {
  Prefix prefix;
  Settings settings;
};

// Set by `load` and `dhcp4_srv_configured`, and not changed while packets are served. The server unloads and loads the
// library with each configuration; it is linked so that it stays in memory, and these with it.
std::unique_ptr<const Settings> settings_of_hook;
std::vector<Subnet> subnets_of_server;
bool is_configured = false;  ///< a configuration has been taken

Announced announced;

/// @return what is known of the director on a socket; a subnet may have one of its own.
Director& director_on(const std::string& socket_path) {
  static std::mutex mutex;
  static std::map<std::string, Director> directors;
  const std::lock_guard lock(mutex);
  return directors[socket_path];
}

constexpr char CONTEXT[] = "lumenharbour";  // key of a subnet's user context

Parameter parameter_of(const ConstElementPtr& element) {
  if (element && element->getType() == Element::string) return element->stringValue();
  if (element && element->getType() == Element::integer) return element->intValue();
  return {};
}

/// Takes over all members of a map. @return what is wrong with one of them; empty when nothing is.
std::string take_parameters(const ConstElementPtr& map, Settings* settings) {
  if (!map) return "";
  if (map->getType() != Element::map) return "expected a map of parameters";
  for (const auto& [name, value] : map->mapValue())
    if (std::string wrong = set_parameter(settings, name, parameter_of(value)); !wrong.empty()) return wrong;
  return "";
}

/// Takes over what the user context of a subnet or a shared network has for us.
std::string take_context(const ConstElementPtr& network, Settings* settings) {
  const ConstElementPtr context = network->get("user-context");
  if (!context || context->getType() != Element::map) return "";
  return take_parameters(context->get(CONTEXT), settings);
}

/// Takes over the settings of each subnet in a list. @return what is wrong, and with which; empty when nothing is.
std::string take_subnets(const ConstElementPtr& subnets, const Settings& settings, std::vector<Subnet>* all) {
  if (!subnets) return "";
  for (const auto& subnet : subnets->listValue()) {
    Subnet taken{parse_prefix(subnet->get("subnet")->stringValue()), settings};
    if (const std::string wrong = take_context(subnet, &taken.settings); !wrong.empty())
      return "subnet " + subnet->get("subnet")->stringValue() + ", user context '" + CONTEXT + "': " + wrong;
    all->push_back(std::move(taken));
  }
  return "";
}

/// Takes over the settings of every subnet of the server's configuration, its shared networks included.
std::string take_configuration(const ConstElementPtr& config, std::vector<Subnet>* all) {
  if (const ConstElementPtr networks = config->get("shared-networks")) {
    for (const auto& network : networks->listValue()) {
      Settings settings = *settings_of_hook;
      if (const std::string wrong = take_context(network, &settings); !wrong.empty())
        return "shared network " + network->get("name")->stringValue() + ", user context '" + CONTEXT + "': " + wrong;
      if (std::string wrong = take_subnets(network->get("subnet4"), settings, all); !wrong.empty()) return wrong;
    }
  }
  return take_subnets(config->get("subnet4"), *settings_of_hook, all);
}

/// @return the settings for a client with that address.
const Settings& settings_for(const isc::asiolink::IOAddress& address) {
  // The server takes subnets that lie in one another.
  const Subnet* narrowest = nullptr;
  for (const Subnet& subnet : subnets_of_server)
    if (subnet.prefix.has(address.toUint32()) && (narrowest == nullptr || subnet.prefix.mask > narrowest->prefix.mask))
      narrowest = &subnet;
  return narrowest == nullptr ? *settings_of_hook : narrowest->settings;
}

std::string text_of(const Option& option) {
  const isc::dhcp::OptionBuffer& data = option.getData();
  return {data.begin(), data.end()};
}

/// @return the product id of a client of ours; nothing for any other.
std::optional<std::uint32_t> product_id_of(const Pkt4Ptr& query) {
  const OptionPtr vendor_class = query->getOption(DHO_VENDOR_CLASS_IDENTIFIER);
  return vendor_class ? lumenharbour::dhcp::product_id_of(text_of(*vendor_class)) : std::nullopt;
}

/// @return a client to announce; nothing for a hardware address of other than 6 bytes.
std::optional<tLumenHarbourClientInfo> client_of(const HWAddr* hwaddr, std::uint32_t product_id) {
  if (hwaddr == nullptr || hwaddr->hwaddr_.size() != LUMENHARBOUR_MAC_SIZE) return std::nullopt;
  tLumenHarbourClientInfo client{};
  client.pid = product_id;
  client.family = AF_INET;
  std::copy(hwaddr->hwaddr_.begin(), hwaddr->hwaddr_.end(), client.mac);
  return client;
}

/// Takes note of how asking the director ended, and tells what that changed.
void note(const lumenharbour::Daemon& daemon, const lumenharbour::Result& result) {
  const std::string& socket_path = daemon.connection().socket_path;
  switch (director_on(socket_path).answered(static_cast<bool>(result))) {
    case Director::News::none:
      break;
    case Director::News::away:
      LOG_ERROR(logger, DIRECTOR_AWAY)
          .arg(result.status == lumenharbour::Status::none ? "the daemon on " + socket_path + " is not the director"
                                                           : daemon.explain(result));
      break;
    case Director::News::back:
      LOG_INFO(logger, DIRECTOR_BACK).arg(socket_path);
      break;
  }
}

/// Announces a client, unless the director is away. @return its names; nothing without an answer.
std::optional<lumenharbour::FileNames> announce(const Settings& settings, const tLumenHarbourClientInfo& client) {
  const lumenharbour::Daemon daemon(connection_to_director(settings));
  const std::chrono::milliseconds timeout(settings.director.timeout_ms);
  if (!director_on(settings.director.socket_path).is_worth_asking(std::chrono::steady_clock::now(), timeout))
    return std::nullopt;
  const auto names = daemon.announce(client);
  note(daemon, names);
  if (!names) return std::nullopt;
  return names.value;
}

/// @return bytes of the reply as it stands, as a DHCP message.
std::size_t size_of(Pkt4* reply) {
  constexpr std::size_t cookie_and_end = 4 + 1;  // which Kea adds when it packs
  return reply->len() + cookie_and_end;
}

/// Puts the director's names into the reply, all of them or none.
void put_names(const Pkt4Ptr& query, const Pkt4Ptr& reply, const Settings& settings,
               const lumenharbour::FileNames& names) {
  if (names.imagelist.empty() && names.config.empty()) {
    static Pace pace;
    if (pace.is_due(std::chrono::steady_clock::now())) {
      LOG_ERROR(logger, NO_NAMES).arg(query->getLabel());
    }
    return;
  }
  if (const std::string refused = refused_by_switch(names); !refused.empty()) {
    static Pace pace;
    if (pace.is_due(std::chrono::steady_clock::now())) {
      LOG_ERROR(logger, BAD_NAME).arg(query->getLabel()).arg(refused);
    }
    return;
  }
  // The server keeps a number that it has parsed, not the bytes.
  std::optional<std::uint16_t> max_size;
  const OptionPtr option = query->getOption(DHO_DHCP_MAX_MESSAGE_SIZE);
  if (const auto* const number = dynamic_cast<const OptionUint16*>(option.get())) max_size = number->getValue();
  const std::size_t limit = message_room(max_size);
  const std::size_t used = size_of(reply.get()) + isc::dhcp::Option::OPTION4_HDR_LEN;
  const std::size_t room = std::min(limit > used ? limit - used : 0, SUBOPTION_MAX);
  const Bytes value = encode_option43(settings, names);
  if (value.size() > room) {
    static Pace pace;
    if (pace.is_due(std::chrono::steady_clock::now())) {
      LOG_ERROR(logger, NO_ROOM).arg(query->getLabel()).arg(value.size()).arg(room);
    }
    return;
  }
  reply->addOption(OptionPtr(new Option(Option::V4, DHO_VENDOR_ENCAPSULATED_OPTIONS, value)));
}

void serve(CalloutHandle& handle) {
  Pkt4Ptr query;
  Pkt4Ptr reply;
  handle.getArgument("query4", query);
  handle.getArgument("response4", reply);
  if (!query || !reply) return;
  const std::optional<std::uint32_t> product_id = product_id_of(query);
  if (!product_id) return;
  std::optional<tLumenHarbourClientInfo> client = client_of(query->getHWAddr().get(), *product_id);
  if (!client) return;
  // It is the director's word or nobody's. What the server has there for other devices a switch might read as an order
  // to install the reply's boot file.
  reply->delOption(DHO_VENDOR_ENCAPSULATED_OPTIONS);
  // A client that only asks for options leases nothing, and nothing would ever have it forgotten again.
  if (reply->getType() != DHCPACK || query->getType() == DHCPINFORM) return;
  const auto& address = reply->getYiaddr();
  const std::vector<std::uint8_t> bytes = address.toBytes();
  std::copy(bytes.begin(), bytes.end(), client->ip);
  client->op = 1;
  announced.add(std::to_array(client->mac), address.toUint32());
  const Settings& settings = settings_for(address);
  if (const auto names = announce(settings, *client)) put_names(query, reply, settings, *names);
}

/// Has a lease's client forgotten. Option 60 is not part of a release and of a lease; a client that is not ours is one
/// that the director does not know, and a deletion of it does nothing. A director that is away is not told: when it is
/// started again it has forgotten all clients, and when it only stood still it keeps a gone one, which is harmless.
void forget(CalloutHandle& handle) {
  isc::dhcp::Lease4Ptr lease;
  handle.getArgument("lease4", lease);
  if (!lease) return;
  const auto client = client_of(lease->hwaddr_.get(), 0);
  if (client && !announced.ends(std::to_array(client->mac), lease->addr_.toUint32())) return;
  const lumenharbour::Daemon daemon(connection_to_director(settings_for(lease->addr_)));
  if (!client || director_on(daemon.connection().socket_path).is_away()) return;
  if (const auto reply = daemon.announce(*client); !reply) note(daemon, reply);
}

/// Runs a callout so that nothing it meets reaches the server. @return 0
int guarded(void (*run)(CalloutHandle&), CalloutHandle& handle) {
  try {
    if (handle.getStatus() != CalloutHandle::NEXT_STEP_DROP) run(handle);
  } catch (const std::exception& error) {
    LOG_ERROR(logger, FAILED).arg(error.what());
  } catch (...) {
    LOG_ERROR(logger, FAILED).arg("unknown exception");
  }
  return 0;
}

/// @return what is wrong with the hook's parameters; empty when nothing is.
std::string take_over(LibraryHandle& handle, Settings* settings) {
  try {
    return take_parameters(handle.getParameters(), settings);
  } catch (const std::exception& error) {
    return error.what();
  }
}

/// @return what is wrong with the overrides of a configuration; empty when nothing is, and then they hold.
std::string take_over(CalloutHandle& handle) {
  try {
    ConstElementPtr config;
    handle.getArgument("json_config", config);
    std::vector<Subnet> subnets;
    std::string wrong = take_configuration(config, &subnets);
    if (wrong.empty()) subnets_of_server = std::move(subnets);
    return wrong;
  } catch (const std::exception& error) {
    return error.what();
  }
}

/// Tells what is wrong with a configuration. A server that serves already goes on with what was set before: refused, it
/// would serve nobody until somebody notices.
///
/// @return true when it is to be refused
bool is_refused(const std::string& wrong) {
  LOG_ERROR(logger, BAD_PARAMETER).arg(is_configured ? wrong + "; what was set before stays in force" : wrong);
  return !is_configured;
}

}  // namespace

extern "C" {

int version() {
  return KEA_HOOKS_VERSION;
}

int multi_threading_compatible() {
  return 1;
}

int load(LibraryHandle& handle) {
  auto settings = std::make_unique<Settings>();
  if (const std::string wrong = take_over(handle, settings.get()); !wrong.empty()) return is_refused(wrong) ? 1 : 0;
  LOG_INFO(logger, LOADED).arg(settings->director.socket_path);
  settings_of_hook = std::move(settings);
  return 0;
}

int dhcp4_srv_configured(CalloutHandle& handle) {
  const std::string wrong = take_over(handle);
  if (wrong.empty()) {
    is_configured = true;
  } else if (is_refused(wrong)) {
    handle.setArgument("error", wrong);
    handle.setStatus(CalloutHandle::NEXT_STEP_DROP);
  }
  return 0;
}

int pkt4_send(CalloutHandle& handle) {
  return guarded(serve, handle);
}

int lease4_release(CalloutHandle& handle) {
  return guarded(forget, handle);
}

int lease4_decline(CalloutHandle& handle) {
  return guarded(forget, handle);
}

int lease4_expire(CalloutHandle& handle) {
  return guarded(forget, handle);
}

}  // extern "C"
