// The dump's documented entry points: adapters that hand the instance's dump fields to
// dump.cpp.
#include "diag/dump.h"
#include "instance.h"

namespace {

dump_files_t dump_files(aec_workingbuf_t *h) {
    return {&h->near_end_dump, &h->far_end_dump,    &h->echo_dump, &h->output_dump, &h->dump_flag,
            h->dump_path,      sizeof h->dump_path, h->dump_id,    h->dbg_level};
}

}  // namespace

int DebugDumpDataInit(aec_workingbuf_t *h) {
    return dump_follow_switch(dump_files(h));
}

void DebugDumpDataFree(aec_workingbuf_t *h) {
    dump_close_all(dump_files(h));
}
