// The self-tests behind "/test".
#pragma once

namespace tvr {

class transaction;

// Runs the self-tests in a scratch folder below the user's temporary files, which is the current folder
// meanwhile and is removed in the end; what fails stands in unit_test.log. On the main thread, in a process
// that ends afterwards: `pipeline`, which must not have been started, works in the scratch folder from then
// on, with the default settings, and counts nothing in the statistic.
void run_self_tests(transaction& pipeline);

} // namespace tvr
