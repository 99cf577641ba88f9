#include <gtest/gtest.h>

#include "support/cases.h"
#include "utility/CUnixTools.h"

using utility::CUnixTools;

TEST(Firewall, EachDistributionHasItsCommandsAndFiles) {
  run_cases(FIXTURES "/firewall.txt",
            {{"iptables_allow_port", call(CUnixTools::iptables_allow_port)},
             {"iptables_banned_port", call(CUnixTools::iptables_banned_port)},
             {"appand_rule", call(CUnixTools::appand_rule)},
             {"delete_rule", call(CUnixTools::delete_rule)}});
}
