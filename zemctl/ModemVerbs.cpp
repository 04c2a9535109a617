#include "ModemVerbs.h"

namespace zemctl {

VerbGroup modemVerbs() {
    return {"The software modem", {}};
}

}  // namespace zemctl
