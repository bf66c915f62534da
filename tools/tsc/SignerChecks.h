/// What a unit would object to in a container that is about to be written, as far as that can be
/// told without the unit: its roots, its clock and its installed container are not known here. No
/// state; any thread.
#ifndef TOOLS_TSC_SIGNERCHECKS_H
#define TOOLS_TSC_SIGNERCHECKS_H

#include <botan/pk_keys.h>

#include <string>
#include <vector>

#include "tools/tsc/ContainerWriter.h"

namespace tsc {

/// One text for each objection, beginning with the field that it is about; empty when there is
/// none. Does not throw but for exhausted memory.
[[nodiscard]] std::vector<std::string> Objections(const ContainerDraft& draft,
                                                  const Botan::Private_Key& key);

}  // namespace tsc

#endif
