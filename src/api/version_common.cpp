// Identification record of the shared signal code, kept in the library's data for tools that
// scan the file. Nothing reads it; `used` keeps it through optimisation and linking.
#include "api/version.h"

namespace {

__attribute__((used)) volatile const RB_VERSION rb_version = {
    {'J', 'Q', 'W'},
    {'1'},
    {'#', '#'},
    {'Q', '7', 'L', 'P', '#', '#', '#', '#'},
    {'g', '9', 'a', '3', '1', '5', '#', '#'},
    {'C', 'O', 'M', '#', '#', '#', '#', '#', '#', '#', '#', '#'},
    {'#'},
    {'W', 'Q', 'J'},
};

}  // namespace
