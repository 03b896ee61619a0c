// Where tests find shared test data and scratch space.
#pragma once

#include <string>

namespace ncbtest {

// Path of a file under the shared test-data folder (png/, jpeg/, zip/, ...).
std::string TestDataPath(const std::string& relative);
// A fresh, empty scratch folder under the build tree, unique per test.
std::string ScratchDir();

}  // namespace ncbtest
