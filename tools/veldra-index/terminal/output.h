#pragma once

namespace veldra::tool {

/// The errno of the first write to standard output that failed, 0 while none has; to be asked right
/// after writing. EPIPE: whoever reads has seen enough, which is no failure.
int output_error();

}  // namespace veldra::tool
