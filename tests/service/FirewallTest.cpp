#include <gtest/gtest.h>

#include "support/calls.h"
#include "support/sandbox.h"
#include "utility/CUnixTools.h"

using utility::CUnixTools;

TEST(Firewall, EachDistributionHasItsCommandsAndFiles) {
  for_each_case(FIXTURES "/firewall.txt",
                {{"steps", steps({{"iptables_allow_port", call(CUnixTools::iptables_allow_port)},
                                  {"iptables_banned_port", call(CUnixTools::iptables_banned_port)},
                                  {"appand_rule", call(CUnixTools::appand_rule)},
                                  {"delete_rule", call(CUnixTools::delete_rule)},
                                  {"record_shell", call([] { sandbox::record_shell(false); })},
                                  {"commands", call(sandbox::shell_commands)}})}});
}
