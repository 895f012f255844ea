#include "command_table.h"

#include "generate.h"

namespace lumenharbour::ctl {
namespace {

constexpr Argument GROUP = {"GROUP", &Arguments::row, true, "group id or name"};
constexpr Argument PID = {"PID", &Arguments::row, true, "product id of the built-in group"};
constexpr Argument INDEX = {"INDEX", &Arguments::row, true, "client index, as 'client list' shows it"};
constexpr Argument MEMBER_MAC = {"MAC", &Arguments::member, true, "MAC address, such as 00:1b:21:0a:0b:0c"};
constexpr Argument MEMBER_PID = {"PID", &Arguments::member, true, "product id"};
constexpr Argument ATTR = {"ATTR", &Arguments::attr, true, "attribute name or number"};
constexpr Argument ATTR_OR_ALL = {"ATTR", &Arguments::attr, false, "attribute name or number; left out: all"};
constexpr Argument VALUE = {"VALUE", &Arguments::value, false, "new value; left out where none is taken"};

constexpr tLumenHarbourTable GRP = LUMENHARBOUR_TABLE_CUSTOMGRP;
constexpr tLumenHarbourTable MACS = LUMENHARBOUR_TABLE_CUSTOMGRPMAC;
constexpr tLumenHarbourTable PIDS = LUMENHARBOUR_TABLE_CUSTOMGRPPID;
constexpr tLumenHarbourTable BUILTIN = LUMENHARBOUR_TABLE_BUILTINGRP;
constexpr tLumenHarbourTable CLIENT = LUMENHARBOUR_TABLE_CLIENT;

constexpr uint32 ACTIVATE = LUMENHARBOUR_ROW_ACTIVE;
constexpr uint32 CREATE = LUMENHARBOUR_ROW_CREATE;
constexpr uint32 DEACTIVATE = LUMENHARBOUR_ROW_INACTIVE;
constexpr uint32 DESTROY = LUMENHARBOUR_ROW_DESTROY;

constexpr Command COMMAND_TABLE[] = {
    {"get", "Print a global attribute, or all of them", {ATTR_OR_ALL}, get},
    {"set", "Set a global attribute", {ATTR, VALUE}, set},
    {"attributes", "List every attribute of every table", {}, list_attributes},

    {"group", "Custom groups: which image and configuration their members run", {}},
    {"group list", "List the custom groups", {}, list<GroupRow>, GRP},
    {"group get", "Print an attribute of a group, or all of them", {GROUP, ATTR_OR_ALL}, get, GRP},
    {"group set", "Set an attribute of a group", {GROUP, ATTR, VALUE}, set, GRP},
    {"group create",
     "Create a group",
     {{"ID", &Arguments::row, true, "id from 0 to group-max - 1, or auto for the lowest free one, which is printed"}},
     create_group,
     GRP,
     CREATE},
    {"group activate", "Write a group's imagelist file", {GROUP}, set_row_status, GRP, ACTIVATE},
    {"group deactivate", "Remove a group's imagelist file", {GROUP}, set_row_status, GRP, DEACTIVATE},
    {"group delete", "Delete a group and its members", {GROUP}, set_row_status, GRP, DESTROY},
    {"group find",
     "Print the id of the group that has a name",
     {{"NAME", &Arguments::row, true, "group name"}},
     find_group,
     GRP},

    {"member", "Members of the custom groups", {}},
    {"member mac", "MAC addresses in groups of type mac", {}},
    {"member mac list", "List the MAC members of all groups", {}, list<MacMemberRow>, MACS},
    {"member mac add", "Add a MAC address to a group", {GROUP, MEMBER_MAC}, set_row_status, MACS, CREATE},
    {"member mac del", "Delete a MAC address from a group", {GROUP, MEMBER_MAC}, set_row_status, MACS, DESTROY},
    {"member mac get", "Print a MAC member's status", {GROUP, MEMBER_MAC, ATTR_OR_ALL}, get, MACS},
    {"member mac set",
     "Set a MAC member's status, as the daemon takes it",
     {GROUP, MEMBER_MAC, ATTR, VALUE},
     set,
     MACS},
    {"member pid", "Product ids in groups of type pid", {}},
    {"member pid list", "List the product-id members of all groups", {}, list<PidMemberRow>, PIDS},
    {"member pid add", "Add a product id to a group", {GROUP, MEMBER_PID}, set_row_status, PIDS, CREATE},
    {"member pid del", "Delete a product id from a group", {GROUP, MEMBER_PID}, set_row_status, PIDS, DESTROY},
    {"member pid get", "Print a product-id member's status", {GROUP, MEMBER_PID, ATTR_OR_ALL}, get, PIDS},
    {"member pid set",
     "Set a product-id member's status, as the daemon takes it",
     {GROUP, MEMBER_PID, ATTR, VALUE},
     set,
     PIDS},

    {"builtin", "Built-in groups, one for a product id: they serve whom no custom group does", {}},
    {"builtin list", "List the built-in groups", {}, list<BuiltinRow>, BUILTIN},
    {"builtin get", "Print an attribute of a built-in group, or all of them", {PID, ATTR_OR_ALL}, get, BUILTIN},
    {"builtin set", "Set an attribute of a built-in group", {PID, ATTR, VALUE}, set, BUILTIN},
    {"builtin create", "Create a built-in group", {PID}, set_row_status, BUILTIN, CREATE},
    {"builtin activate", "Write a built-in group's imagelist file", {PID}, set_row_status, BUILTIN, ACTIVATE},
    {"builtin deactivate", "Remove a built-in group's imagelist file", {PID}, set_row_status, BUILTIN, DEACTIVATE},
    {"builtin delete", "Delete a built-in group", {PID}, set_row_status, BUILTIN, DESTROY},

    {"client", "Client switches that the director has seen", {}},
    {"client list", "List the clients", {}, list<ClientRow>, CLIENT},
    {"client get", "Print an attribute of a client, or all of them", {INDEX, ATTR_OR_ALL}, get, CLIENT},
    {"client set", "Set a client's status: any value forgets it", {INDEX, ATTR, VALUE}, set, CLIENT},
    {"client delete", "Forget a client", {INDEX}, set_row_status, CLIENT, DESTROY},
    {"client flush", "Forget every client", {}, flush_clients},

    {"announce",
     "Announce a client as the DHCP server does, and print what it is to fetch",
     {{"--mac", &Arguments::mac, true, "the client's MAC address", "MAC"},
      {"--pid", &Arguments::pid, false, "the client's product id", "PID"},
      {"--ip", &Arguments::ip, false, "the client's IPv4 address", "IP"},
      {"--delete", nullptr, false, "forget the client; --mac is enough then", "", &Arguments::remove}},
     announce},

    {"completion", "What makes a shell complete this tool's command lines", {}},
    {"completion bash", "Print the completion script for bash", {}, print_bash_completion},
    {"completion zsh", "Print the completion script for zsh", {}, print_zsh_completion},
    {"manual", "Print the manual page, for man(1)", {}, print_manual},
};

constexpr Argument OPTION_TABLE[] = {
    {"-h,--help", nullptr, false, "Print this help message and exit"},
    {"-s,--socket", &Arguments::socket, false, "the daemon's socket", "PATH"},
    {"-t,--timeout", &Arguments::timeout, false, "how long to wait for an answer", "SECONDS"},
};

constexpr ExitText EXIT_TABLE[] = {
    {EXIT_DONE, "done"},
    {EXIT_REFUSED, "refused"},
    {EXIT_USAGE, "wrong usage"},
    {EXIT_NOT_FOUND, "not found"},
    {EXIT_UNREACHABLE, "no daemon reached"},
    {EXIT_TIMED_OUT, "no answer in time"},
};

}  // namespace

constexpr std::span<const Command> COMMANDS = COMMAND_TABLE;
constexpr std::span<const Argument> OPTIONS = OPTION_TABLE;
constexpr std::span<const ExitText> EXITS = EXIT_TABLE;

std::vector<const tLumenHarbourAttr*> attributes_of(const Command& command) {
  const uint8 access = command.run == set ? LUMENHARBOUR_ATTR_SET : LUMENHARBOUR_ATTR_GET;
  std::vector<const tLumenHarbourAttr*> attributes;
  for (const tLumenHarbourAttr& attr : LUMENHARBOUR_ATTRS)
    if (attr.table == command.table && attr.value != LUMENHARBOUR_VALUE_RECORD && (attr.access & access) != 0)
      attributes.push_back(&attr);
  return attributes;
}

}  // namespace lumenharbour::ctl
