#include <gtest/gtest.h>

#include "support/cases.h"
#include "utility/CUnixTools.h"

using utility::CUnixTools;

// The directory is kept for the life of a process, so that each case has one of its own.
TEST(Agent, TheInstallationAndItsEntries) {
  run_cases(FIXTURES "/agent.txt",
            {{"get_oem_and_issue", call(CUnixTools::get_oem_and_issue)},
             {"get_tarvel_path", call(CUnixTools::get_tarvel_path)},
             {"get_agent_names", call(CUnixTools::get_agent_names)},
             {"operate_agent_service", call(CUnixTools::operate_agent_service)},
             {"program_is_tarvel", call(CUnixTools::program_is_tarvel)}},
            true);
}
