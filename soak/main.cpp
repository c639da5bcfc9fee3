// What the library does when something is lacking, and in the long run.
//
//   resources LIBRARY sweep STEP [cold]   of the requests for memory each STEP th fails; of all others each
//   resources LIBRARY soak THOUSANDTHS    of the long form's 10,000 restarts of a stream
#include <cstdlib>
#include <string_view>

#include "Cameras.h"
#include "Soak.h"
#include "Sweep.h"

int main(int count, char** arguments) {
  using namespace kolvex_test;
  if (count < 4) {
    return 2;
  }
  StartCameras(8);
  const Library library(arguments[1]);
  const int number = std::atoi(arguments[3]);
  const bool good =
      std::string_view(arguments[2]) == "sweep" ? Sweep(library, number, count > 4) : Soak(library, number);
  return good ? 0 : 1;
}
