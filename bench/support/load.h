#pragma once

#include <string>

namespace bench {

/// What the processes of a load are made of.
struct LoadShape {
  int processes;
  int files;          ///< open files of each, besides its three standard ones
  int sockets;        ///< open sockets of each: TCP pairs with their listener, and UDP
  int environ_bytes;  ///< size of the environment
};

/// Processes that hold files and sockets open and do nothing. They are started by one process of
/// their own, which ends them by their ids when the load goes, or the program that wanted it.
class Load {
 public:
  explicit Load(const LoadShape& shape);
  ~Load();
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

 private:
  int control_;
  int pid_;
};

/// The starter of the processes: what a program does that is called with "--load".
int serve_load(int argc, char** argv);

}  // namespace bench
