#include <zem/Manager.h>

// A modem that refuses everything.
int main() {
    zem::Manager& manager = zem::Manager::getInstance();
    manager.init(0, false);
    const zem::AddProfileParams params(false, zem::TechType::TECH_3GPP, false);
    return manager.addProfile(params) == nullptr && manager.filter({}).empty() ? 0 : 1;
}
