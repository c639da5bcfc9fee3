#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kolvex_bench {

/// Processes that end, all of them, with this object or with the process that made it.
class Processes {
 public:
  Processes() = default;
  ~Processes();
  Processes(const Processes&) = delete;
  Processes& operator=(const Processes&) = delete;

  /// A copy of this process that runs @p body and then waits for its end. What @p body throws ends it.
  void Fork(const std::function<void()>& body);
  /// Another program; what it says goes into @p log.
  /// @param niceness  of all its threads, as far as the system allows
  void Execute(const std::vector<std::string>& command, const std::string& log, int niceness);
  /// Sends the signal and waits for all of them, for some seconds at most.
  void End(int signal);

  const std::vector<pid_t>& Ids() const { return ids_; }
  /// Throws std::runtime_error when one has ended.
  void Check(const std::string& name);

 private:
  std::vector<pid_t> ids_;
};

/// Sender and receivers have processors of their own, as camera and server have: the sender the last one.
enum class Side { Sender, Receivers };
/// This process, and those that it makes from now on, stay on that side's processors. With one processor nothing happens.
void StayOn(Side side);

/// Raises this process's limit of open descriptors as far as it may.
void AllowDescriptors();
/// Whether a program of this name is in the search path.
bool IsInstalled(const std::string& program);

/// Processor time in nanoseconds, user and system, of all threads that the process has and has had.
double ProcessorTime(pid_t process);

struct ProcessFacts {
  double residentKb = 0;      ///< pages in memory, shared ones in full
  double proportionalKb = 0;  ///< shared pages by their share
  double threads = 0;
  double descriptors = 0;
  double voluntary = 0;  ///< context switches: waits

  void Add(const ProcessFacts& other);
};
ProcessFacts FactsOf(pid_t process);

/// Datagrams that were lost since a socket's receive buffer was full, of all sockets of the network namespace.
/// Not a number when the system doesn't say.
double DroppedDatagrams();
/// Whether some socket is bound to each of these UDP ports, of the network namespace.
bool AreBound(const std::vector<std::uint16_t>& ports);

}  // namespace kolvex_bench
