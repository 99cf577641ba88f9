#include "utility/CUnixServ.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/cases.h"
#include "support/sandbox.h"

using utility::CUnixServ;
using S = std::string;

namespace {

// The result and "name:status" of each.
Words list_all() {
  const auto collect = [](const CUnixServ::UnixServData& data, void* all) {
    static_cast<Words*>(all)->push_back(data.name + ":" + data.status);
    return 0;
  };
  Words services;
  services.push_back(std::to_string(CUnixServ::get_all_serv_data(collect, &services)));
  std::sort(services.begin(), services.end());
  return services;
}

int stop_at_the_first() {
  const auto stop = [](const CUnixServ::UnixServData&, void* count) {
    return ++*static_cast<int*>(count);
  };
  int count = 0;
  const int result = CUnixServ::get_all_serv_data(stop, &count);
  EXPECT_EQ(count, 1);
  return result;
}

Words describe(const S& name, const S& text_file) {
  CUnixServ::UnixServData data{"kept", "kept", "kept"};
  const int result = CUnixServ::get_serv_data(name, data);
  sandbox::write_file(text_file, data.status_text);
  return texts(result, data.name + ":" + data.status);
}

}  // namespace

TEST(CUnixServ, ScriptsOfTheRealServiceCommand) {
  run_cases(FIXTURES "/services.txt", {{"getstatus", call(CUnixServ::getstatus)},
                                       {"get_all_serv_data", call(list_all)},
                                       {"get_all_until_stopped", call(stop_at_the_first)},
                                       {"get_serv_data", call(describe)},
                                       {"start_serv", call(CUnixServ::start_serv)},
                                       {"stop_serv", call(CUnixServ::stop_serv)}});
  EXPECT_EQ(CUnixServ::get_all_serv_data(nullptr, nullptr), 0);
}
