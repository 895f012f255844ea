#include "command_table.h"

#include "commands.h"
#include "complete.h"
#include "generate.h"

namespace lumenharbour::ctl {
namespace {

constexpr std::string_view AUTO[] = {"auto"};
constexpr std::string_view NONE[] = {"none"};
constexpr std::string_view GROUP_TYPES[] = {"mac", "pid"};
constexpr std::string_view SHOW[] = {"show"};

constexpr Argument GROUP = {"GROUP", &Arguments::row, true, "group id or name", "", Hint::group};
constexpr Argument GROUP_OR_ALL = {"GROUP", &Arguments::row, false, "group id or name; left out: all", "", Hint::group};
constexpr Argument PID = {"PID", &Arguments::row, true, "product id of the built-in group", "", Hint::builtin};
constexpr Argument NEW_PID = {"PID", &Arguments::row, true, "product id"};
constexpr Argument PID_OR_ALL = {"PID", &Arguments::row, false, "product id; left out: all", "", Hint::builtin};
constexpr Argument CLIENT = {"CLIENT", &Arguments::row, true, "client index or MAC address", "", Hint::client};
constexpr Argument CLIENT_OR_ALL = {"CLIENT", &Arguments::row, false, "client index or MAC address; left out: all",
                                    "",       Hint::client};
constexpr Argument MEMBERS = {"MEMBER", &Arguments::members, true,
                              "MAC addresses, or product ids, as the group's type"};
constexpr Argument ATTR = {"ATTR", &Arguments::attr, true, "attribute name or number", "", Hint::attribute};
constexpr Argument ATTR_OR_ALL = {"ATTR", &Arguments::attr, false, "attribute name or number; left out: all",
                                  "",     Hint::attribute};
constexpr Argument VALUE = {"VALUE", &Arguments::value, false, "new value; left out where none is taken",
                            "",      Hint::value};
constexpr Argument IMAGE = {"--image", &Arguments::image, false, "image file", "FILE"};
constexpr Argument CONFIG = {"--config", &Arguments::config, false, "configuration file", "FILE"};
constexpr Argument ACTIVATE_TOO = {"--activate", &Arguments::activate, false, "write its imagelist file too"};
constexpr Argument NAME = {"NAME", &Arguments::value, true, "file name; '' for none"};
constexpr Argument YES_NO = {"YES|NO", &Arguments::value, true, "yes: it is named by its full path", "", Hint::value};
constexpr Argument ON_OFF = {"ON|OFF", &Arguments::value, true, "on or off", "", Hint::value};
constexpr Argument VLANS = {"LIST", &Arguments::value, true, "VLAN ids and ranges, such as 1,5,100-120"};
constexpr Argument AFTER = {"--after", &Arguments::after, true, "seconds until the reload, or off for none",
                            "SECONDS|off"};

constexpr Argument FIELDS = {"--fields", &Arguments::fields, false, "what to show of each row, such as name,image",
                             "NAMES"};
constexpr Argument WIDE = {"--wide", &Arguments::wide, false, "show every field of each row, and cut nothing"};
constexpr Argument FORCE = {"--force", &Arguments::force, false, "do it without asking, whatever is lost by it"};

constexpr Argument DRY_RUN = {"--dry-run", &Arguments::dry_run, false, "print the changes without making them"};
constexpr Argument STOPPED = {"--stopped", &Arguments::stopped, false,
                              "also when the service is stopped, and there are no groups"};

constexpr tLumenHarbourTable GLB = LUMENHARBOUR_TABLE_GLOBAL;
constexpr tLumenHarbourTable GRP = LUMENHARBOUR_TABLE_CUSTOMGRP;
constexpr tLumenHarbourTable BLT = LUMENHARBOUR_TABLE_BUILTINGRP;
constexpr tLumenHarbourTable CLI = LUMENHARBOUR_TABLE_CLIENT;

/// The status is attribute 1 of every table of rows.
constexpr uint32 STATUS = LUMENHARBOUR_CUSTOMGRP_STATUS;
static_assert(STATUS == LUMENHARBOUR_BUILTINGRP_STATUS && STATUS == LUMENHARBOUR_CLIENT_STATUS);

constexpr bool CHANGES = true;
constexpr bool READS = false;

constexpr Command COMMAND_TABLE[] = {
    {"show", "Show what the daemon does, and how full it is", {}, show},
    {"show group",
     "Show the custom groups, or one with its members",
     {GROUP_OR_ALL, FIELDS, WIDE},
     show_groups,
     READS,
     GRP},
    {"show builtin", "Show the built-in groups, or one", {PID_OR_ALL, FIELDS, WIDE}, show_builtins, READS, BLT},
    {"show client",
     "Show the clients that the director has seen, or one",
     {CLIENT_OR_ALL, FIELDS, WIDE},
     show_clients,
     READS,
     CLI},
    {"show imagelist",
     "Show what the imagelist files of defaults and groups say, beside what they should say",
     {GROUP_OR_ALL},
     show_imagelists,
     READS,
     GRP},
    {"show vlan", "Show the management VLANs and the DHCP client's VLAN", {}, show_vlans},

    {"service", "The provisioning service of this switch"},
    {"service start",
     "Start the service: a switch without a saved configuration becomes a client",
     {},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_STATE,
     LUMENHARBOUR_ON},
    {"service stop",
     "Stop the service; a director forgets its groups",
     {FORCE},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_STATE,
     LUMENHARBOUR_OFF},

    {"director", "Which switch is the director"},
    {"director address",
     "Set the director's address: the switch that has it becomes the director",
     {{"ADDRESS", &Arguments::value, true, "IPv4 address, or none", "", Hint::words, NONE}, FORCE},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DIRECTORIP},
    {"director start", "Become the director", {}, set, CHANGES, GLB, LUMENHARBOUR_GLB_DIRECTORSTATE, LUMENHARBOUR_ON},
    {"director stop",
     "Leave the director role; groups and clients are forgotten",
     {FORCE},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DIRECTORSTATE,
     LUMENHARBOUR_OFF},
    {"director type",
     "Set the type of the director's address, which 'director start' wants above 0",
     {{"TYPE", &Arguments::value, true, "number from 0 to 15"}},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DIRECTORIPTYPE},

    {"debug", "Switch the daemon's messages on or off", {ON_OFF, FORCE}, set, CHANGES, GLB, LUMENHARBOUR_GLB_DEBUG},
    {"notify",
     "Say whether the DHCP client is told of failed attempts, in the client role",
     {ON_OFF},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_CLIENTNOTIFY},

    {"default", "What a client gets that no group serves"},
    {"default image", "Set the default image", {NAME}, set, CHANGES, GLB, LUMENHARBOUR_GLB_DEFAULTIMAGENAME},
    {"default config", "Set the default configuration", {NAME}, set, CHANGES, GLB, LUMENHARBOUR_GLB_DEFAULTCONFIGNAME},
    {"default image-local",
     "Say whether the default image is local",
     {YES_NO},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DEFAULTIMAGETYPE},
    {"default config-local",
     "Say whether the default configuration is local",
     {YES_NO},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DEFAULTCONFIGTYPE},

    {"group", "Custom groups: which image and configuration their members run"},
    {"group add",
     "Add a group",
     {{"ID", &Arguments::row, true, "id from 0 to group-max - 1, or auto for the lowest free one, which is printed", "",
       Hint::words, AUTO},
      {"NAME", &Arguments::name, true, "name, of which the imagelist file takes its own"},
      {"--type", &Arguments::type, true, "what its members are: mac or pid", "TYPE", Hint::words, GROUP_TYPES},
      IMAGE,
      CONFIG,
      ACTIVATE_TOO},
     add_group,
     CHANGES,
     GRP},
    {"group get", "Print an attribute of a group, or all of them", {GROUP, ATTR_OR_ALL}, get, READS, GRP},
    {"group set", "Set an attribute of a group", {GROUP, ATTR, VALUE}, set, CHANGES, GRP},
    {"group activate", "Write a group's imagelist file", {GROUP}, set, CHANGES, GRP, STATUS, LUMENHARBOUR_ROW_ACTIVE},
    {"group deactivate",
     "Remove a group's imagelist file",
     {GROUP},
     set,
     CHANGES,
     GRP,
     STATUS,
     LUMENHARBOUR_ROW_INACTIVE},
    {"group delete", "Delete a group and its members", {GROUP}, set, CHANGES, GRP, STATUS, LUMENHARBOUR_ROW_DESTROY},
    {"group member", "Members of the custom groups"},
    {"group member add",
     "Add members to a group",
     {GROUP, MEMBERS},
     set_members,
     CHANGES,
     GRP,
     STATUS,
     LUMENHARBOUR_ROW_CREATE},
    {"group member del",
     "Delete members from a group",
     {GROUP, MEMBERS},
     set_members,
     CHANGES,
     GRP,
     STATUS,
     LUMENHARBOUR_ROW_DESTROY},

    {"builtin", "Built-in groups, one for a product id: they serve whom no custom group does"},
    {"builtin add", "Add a built-in group", {NEW_PID, IMAGE, CONFIG, ACTIVATE_TOO, FORCE}, add_builtin, CHANGES, BLT},
    {"builtin get", "Print an attribute of a built-in group, or all of them", {PID, ATTR_OR_ALL}, get, READS, BLT},
    {"builtin set", "Set an attribute of a built-in group", {PID, ATTR, VALUE}, set, CHANGES, BLT},
    {"builtin activate",
     "Write a built-in group's imagelist file",
     {PID},
     set,
     CHANGES,
     BLT,
     STATUS,
     LUMENHARBOUR_ROW_ACTIVE},
    {"builtin deactivate",
     "Remove a built-in group's imagelist file",
     {PID},
     set,
     CHANGES,
     BLT,
     STATUS,
     LUMENHARBOUR_ROW_INACTIVE},
    {"builtin delete", "Delete a built-in group", {PID}, set, CHANGES, BLT, STATUS, LUMENHARBOUR_ROW_DESTROY},

    {"client", "Client switches that the director has seen"},
    {"client get", "Print an attribute of a client, or all of them", {CLIENT, ATTR_OR_ALL}, get, READS, CLI},
    {"client delete", "Forget a client", {CLIENT}, set, CHANGES, CLI, STATUS, LUMENHARBOUR_ROW_DESTROY},
    {"client flush", "Forget every client", {}, set, CHANGES, GLB, LUMENHARBOUR_GLB_DBFLUSH},

    {"vlan", "Management VLANs"},
    {"vlan add", "Add management VLANs", {VLANS}, set, CHANGES, GLB, LUMENHARBOUR_GLB_MANAGEVLANADD},
    {"vlan del", "Remove management VLANs", {VLANS}, set, CHANGES, GLB, LUMENHARBOUR_GLB_MANAGEVLANDEL},
    {"dhcp-vlan",
     "Set the VLAN whose interface the DHCP client runs on",
     {{"VID", &Arguments::value, true, "VLAN id from 0 to 4095"}},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DHCPCLIENTVLAN},

    {"download", "Fetch a file now, in the client role"},
    {"download image",
     "Fetch and install the image that DHCP offered",
     {},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DOWNLOADIMAGE},
    {"download config",
     "Fetch and install the configuration that DHCP offered",
     {},
     set,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_DOWNLOADCONFIG},
    {"reload", "Restart the switch after a download, in the client role"},
    {"reload image",
     "Say when to restart after an image download",
     {AFTER},
     reload,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_IMAGERELOADTIME},
    {"reload config",
     "Say when to restart after a configuration download",
     {AFTER},
     reload,
     CHANGES,
     GLB,
     LUMENHARBOUR_GLB_CONFIGRELOADTIME},

    {"announce",
     "Announce a client as the DHCP server does, which adds or changes it, and print what it is to fetch",
     {{"--mac", &Arguments::mac, true, "the client's MAC address", "MAC"},
      {"--pid", &Arguments::pid, false, "the client's product id", "PID"},
      {"--ip", &Arguments::ip, false, "the client's IPv4 address", "IP"},
      {"--delete", &Arguments::remove, false, "forget the client; --mac is enough then"}},
     announce,
     CHANGES},
    {"explain",
     "Tell what a client would be told, and why, from the director's tables; nothing stays changed",
     {{"CLIENT", &Arguments::row, false, "index or MAC address of a client that the director has seen", "",
       Hint::client},
      {"--mac", &Arguments::mac, false, "any other client's MAC address", "MAC"},
      {"--pid", &Arguments::pid, false, "its product id; left out: the one that the director knows", "PID"}},
     explain,
     READS,
     CLI},
    {"check",
     "Find what an operator should look at; exit status 0 for nothing, 1 for findings, one a line",
     {},
     check_state},

    {"apply",
     "Make the daemon what a file says, changing only what differs",
     {{"FILE", &Arguments::file, true, "YAML or JSON, as 'export' writes it; - for standard input", "", Hint::file},
      DRY_RUN,
      {"--prune", &Arguments::prune, false, "delete groups and members that the file does not name"},
      {"--confirm", &Arguments::confirm, false,
       "put the former state back unless 'confirm' is run within so many seconds; a signal, also that of a lost "
       "terminal, puts it back at once",
       "SECONDS"},
      FORCE},
     apply},
    {"confirm", "Let the changes of an 'apply --confirm' that waits stay", {}, confirm, CHANGES},
    {"export", "Print the daemon's state as a file for 'apply'", {STOPPED}, export_state},
    {"save",
     "Write what 'export' prints to a file, and keep those of before as FILE.1, FILE.2 and so on",
     {{"FILE", &Arguments::file, true, "the file; nothing is done when it says the same already", "", Hint::file},
      {"--generations", &Arguments::generations, false, "how many of before to keep; 5 if left out", "N"},
      STOPPED},
     save},
    {"rollback",
     "Make the daemon what FILE.1 says, groups that it does not name deleted, and have FILE and FILE.1 change places",
     {{"FILE", &Arguments::file, true, "a file of 'save'; a second rollback undoes the first", "", Hint::file},
      DRY_RUN,
      FORCE},
     rollback},
    {"watch",
     "Print what changes, one line each, until interrupted",
     {{"SHOW", &Arguments::words, false, "what to watch: a 'show' command; left out: all", "", Hint::words, SHOW},
      {"--limit", &Arguments::limit, false, "end after so many changes", "N"},
      {"--interval", &Arguments::interval, false, "seconds between two looks; 1 if left out", "SECONDS"}},
     watch},
    {"wait",
     "Wait until conditions hold; --timeout says for how long, without it for ever",
     {{"--for", &Arguments::condition, true,
       "such as role=director, client-count>=10, client=MAC or client-group=GROUP; all of several", "CONDITION"},
      {"--interval", &Arguments::interval, false, "seconds between two looks; 0.2 if left out", "SECONDS"}},
     wait},

    {"get", "Print a global attribute, or all of them", {ATTR_OR_ALL}, get},
    {"set", "Set a global attribute", {ATTR, VALUE, FORCE}, set, CHANGES},
    {"attributes", "List every attribute of every table", {}, list_attributes},

    {"completion", "What makes a shell complete this tool's command lines"},
    {"completion bash", "Print the completion script for bash", {}, print_bash_completion},
    {"completion zsh", "Print the completion script for zsh", {}, print_zsh_completion},
    {"complete",
     nullptr,
     {{"WORD", &Arguments::words, false, "the words of a line, the last one unfinished"}},
     print_candidates},
    {"manual", "Print the manual page, for man(1)", {}, print_manual},
};

}  // namespace

constexpr Commands COMMANDS = COMMAND_TABLE;

}  // namespace lumenharbour::ctl
