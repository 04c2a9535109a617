// Phone: an engine on the software modem, all of whose profiles it has read.
#pragma once

#include <softmodem/SoftModem.h>
#include <zem/Manager.h>

#include <cstdlib>
#include <memory>
#include <thread>

#include "CountingWriter.h"
#include "FilledModem.h"

namespace zem {

// One at a time: there is one modem.
class Phone {
  public:
    explicit Phone(const Stock& stock) : modem(filledModem(stock)) {
        manager.init(0, false);
        echoes = CountingWriter::install();
        // The modem reports its profiles once the engine has registered.
        while (manager.filter({}).size() != stock.all()) std::this_thread::yield();
        modem.waitUntilIdle();
        manager.refresh(COMPLETE);
    }

    // A change has been made when its echoes have been absorbed.

    std::shared_ptr<IProfileKey> add() {
        ProfileParams params;
        params.setApnName(kAddedName);
        auto key = manager.addProfile({params, false, TechType::TECH_3GPP, false});
        if (!key) abort();
        echoes->await(2);
        return key;
    }

    void changeUserName(const std::shared_ptr<IProfileKey>& key) {
        ModifyProfileParams params;
        params.setUserName(userNames.next());
        if (!manager.modifyProfile(params, key)) abort();
        echoes->await(1);
    }

    void remove(const std::shared_ptr<IProfileKey>& key) {
        if (!manager.deleteProfile(key)) abort();
        echoes->await(1);
    }

    softmodem::SoftModem& modem;
    Manager manager;

  private:
    std::shared_ptr<Tally> echoes;
    UserNames userNames;
};

}  // namespace zem
