#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "io/CIOBase.h"
#include "support/Eventually.h"

namespace sarnevo {

/// A host that does what it likes with the digital I/O of a camera with three outputs: 10,000 operations from
/// four threads, and more from inside its callbacks.
class RandomHost {
 public:
  static constexpr u32 kOutputs = 3;

  /// Runs in each callback; calls back while Operate runs.
  void InCallback() {
    CIOBase* const io = io_;
    if (io == nullptr) {
      return;
    }
    const u32 number = ++callbacks_;
    switch (number % 7) {
      case 0:
        io->Stop();
        break;
      case 1:
        io->Start();
        break;
      default:
        io->SetOutput(number % kOutputs, IOStateHigh);
        break;
    }
  }

  /// @param disturb  changes the camera's mood by a random number; any thread
  void Operate(CIOBase& io, const std::function<void(u32)>& disturb) {
    io_ = &io;
    std::vector<std::thread> threads;
    for (u32 seed = 0; seed < 4; ++seed) {
      threads.emplace_back([&, random = std::mt19937(seed)]() mutable {
        for (int i = 0; i < 2500; ++i) {
          const u32 number = static_cast<u32>(random());
          switch (number % 16) {
            case 0:
              io.Start();
              break;
            case 1:
              io.Stop();
              break;
            case 2:
            case 3:
              disturb(number / 16);
              break;
            default:
              io.SetOutput(number / 16 % (kOutputs + 1), IOStateLow + number / 64 % 2);
              break;
          }
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
    io_ = nullptr;
  }

  /// What is remembered of each output is what the camera has: setting it to anything else reaches it.
  /// @param camera  the state of an output; the camera is sound again
  static void ExpectStep(CIOBase& io, const std::function<u32(u32)>& camera) {
    EXPECT_TRUE(io.Stop());
    EXPECT_TRUE(io.Start());
    for (u32 index = 0; index < kOutputs; ++index) {
      EXPECT_TRUE(kolvex_test::Eventually([&] { return camera(index) == IOStateLow; })) << index;
      for (const u32 wanted : {IOStateHigh, IOStateLow, IOStateHigh}) {
        EXPECT_TRUE(io.SetOutput(index, wanted));
        EXPECT_TRUE(kolvex_test::Eventually([&] { return camera(index) == wanted; })) << index << " stays";
      }
    }
  }

 private:
  std::atomic<CIOBase*> io_{nullptr};
  std::atomic<u32> callbacks_{0};
};

}  // namespace sarnevo
