#pragma once

#include <string>

#include "support/LoadedHost.h"

namespace kolvex_test {

/// Everything that a host does with one camera, from the query to the deletion of the driver, with short waits.
/// What may fail for want of something is done again without that want, and must work then. Prints what is
/// wrong; false when something was.
bool RunScenario(const Library& library, Host& host);

/// One query from begin to end. True when it described the whole camera.
bool Query(const Library& library, Host& host);

/// The names in the camera's file beside the program, a comma after each; "torn" when the file isn't whole.
std::string NamesInFile(const Host& host);

/// The same of the list.
std::string NamesInList(IIPPTZApi& head);

/// Where the camera's file lies.
std::string PresetFile(const Host& host);

}  // namespace kolvex_test
