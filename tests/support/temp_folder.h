// A new, empty folder under the system's temporary folder, with a unique name that
// starts with `prefix` (mkdtemp's job, which Windows' C runtime lacks). Empty string
// when none could be made.
#pragma once

#include <string>

namespace kxtest {

std::string MakeTempFolder(const std::string& prefix);

}  // namespace kxtest
