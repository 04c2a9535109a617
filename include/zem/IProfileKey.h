// IProfileKey: a caller's counted handle to one data profile of the modem.
//
// Hold a key for as long as the profile is used. Dropping the last key to a profile that the
// library created and that is not persistent deletes the profile from the modem; dropping a key
// blocks until the engine has counted it, exactly like an operation of Manager.
//
// Any thread but the engine's, one call at a time together with all other calls into the library.
// Two things must therefore never happen: the last reference to a key dropped on the engine thread,
// and a listener that owns a key or calls the library. The library refuses such a call (it logs one
// error line and does nothing), so the key is then never counted out.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <zem/Annotations.h>
#include <zem/ProfileParams.h>

namespace zem {

class ZEM_EXPORT IProfileKey : public std::enable_shared_from_this<IProfileKey> {
  public:
    // Blocks until the engine has released the profile: for up to 1000 ms when the modem must
    // delete it and does not answer. A deletion that fails is logged, and the profile stays.
    // Nothing is released during a refresh, by an expired key, or once the engine is gone.
    virtual ~IProfileKey() noexcept(false);

    // Index of the profile on the modem, 0 to 255, as it was when the key was made. It says nothing
    // about whether the profile still exists. Asks nobody: any thread, at any time.
    virtual int getProfileId() = 0;

    // The family of profiles that the index belongs to; likewise.
    virtual TechType getTechType() = 0;

    // Calls cb once when the library lets go of its present copy of the profile: it was deleted,
    // changed by the modem, or all profiles were read anew. cb runs on the engine thread (at
    // shutdown on the thread that shuts down), possibly before this call returns; it must not
    // block, throw, call the library or own a key. Several run in the order of their registration.
    // Nothing is called when this key has gone before, when cb is empty, when the key has expired
    // already, or when a refresh is in progress at registration.
    virtual void registerExpirationListener(std::function<void()> cb) = 0;

    // One line for the log, such as "3GPP:2 token=7"; likewise. A token names one copy of a
    // profile, and is never given again in the process.
    virtual std::string dump() = 0;

  protected:
    IProfileKey() = default;
    IProfileKey(const IProfileKey&) = default;
    IProfileKey& operator=(const IProfileKey&) = default;
};

}  // namespace zem
