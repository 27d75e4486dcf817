// Identification record of the shared signal code, kept in the library's data for tools that scan
// the file. Nothing reads it; `used` keeps it through optimisation and linking.
#include "api/version.h"

namespace {

__attribute__((used)) volatile const RB_VERSION rb_version =
    make_rb_version("g9a315##", "COM#########");

}  // namespace
