#include "cli/terminal/core_dump_blocker.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace cardcert::cli {
namespace {

constexpr int kNotDumpable = 0;
constexpr int kDumpable = 1;

unsigned num_blockers = 0;
int dumpable_before = kNotDumpable;
rlimit limit_before = {};

}  // namespace

CoreDumpBlocker::CoreDumpBlocker() {
  if (num_blockers++ != 0)
    return;
  dumpable_before = prctl(PR_GET_DUMPABLE);
  prctl(PR_SET_DUMPABLE, kNotDumpable);
  if (getrlimit(RLIMIT_CORE, &limit_before) != 0)
    limit_before = {0, 0};
  const rlimit nothing = {0, limit_before.rlim_max};
  setrlimit(RLIMIT_CORE, &nothing);
}

CoreDumpBlocker::~CoreDumpBlocker() {
  if (--num_blockers != 0)
    return;
  setrlimit(RLIMIT_CORE, &limit_before);
  if (dumpable_before == kDumpable)  // The kernel accepts no other value here.
    prctl(PR_SET_DUMPABLE, kDumpable);
}

}  // namespace cardcert::cli
