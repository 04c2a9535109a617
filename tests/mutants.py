#!/usr/bin/env python3
"""Changes the library in many places, one at a time, and sees that a test fails each time.

Works in a copy of the tree under build/mutants. A place that no longer stands in the sources fails
too: it needs a new one.

usage: tests/mutants.py [WORD...]   only those changes in whose line one of the words stands
"""

import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TREE = ROOT / "build" / "mutants" / "tree"
ANNOTATIONS = "annotations"  # no test: the compiler finds a missing lock

# A file of src, what stands in it once, what takes its place, and the test that has to fail.
MUTANTS = [
    ("AdbWriter.cpp", "return ANDROID_LOG_ERROR", "return ANDROID_LOG_WARN", "logging_test"),
    ("CallbackRequest.cpp", "expirationToken = token;", "", "engine_test"),
    ("ClientRequest.cpp", '{MATCH, "Match"}', '{MATCH, "Get"}', "params_test"),
    ("ClientRequestManager.cpp", "if (!add || refused)", "if (!add)", "engine_test"),
    ("ClientRequestManager.cpp", "!refused && handleCallback", "handleCallback", "model_test"),
    ("ClientRequestManager.cpp", "eventManager.removeEventHandler(requestFd.get());", "", "engine_test"),
    ("ClientRequestManager.cpp", " && callback->getExpirationCb()", "", "engine_test"),
    ("ClientResponse.cpp", "key ? key->dump() : \"null\"", "key ? key->dump() : \"\"", "params_test"),
    ("DiagWriter.cpp", "case LOG_API:", "case LOG_INFO:", "logging_test"),
    ("DumpText.h", "if (mask == 0) text.append(none);", "", "params_test"),
    ("EventFd.cpp", "while (got > 0)", "while (got >= 0)", "event_manager_test"),
    ("EventFd.cpp", "errno != EAGAIN", "errno == EAGAIN", "event_manager_test"),
    ("EventManager.cpp", "if (mask & EPOLLHUP) {", "if (mask == EPOLLHUP) {", "event_manager_test"),
    ("EventManager.cpp", "return !known;", "return true;", "event_manager_test"),
    ("EventManager.cpp", "addApprovedFd(fd);", "if (watched) addApprovedFd(fd);", "event_manager_test"),
    ("EventManager.cpp", "count - i);", "count);", "event_manager_test"),
    ("EventManager.cpp", "    removeEventHandler(fd);\n    close(fd);", "    close(fd);\n    removeEventHandler(fd);", "event_manager_test"),
    ("EventManager.cpp", "handler = entry->second;\n    }\n    if (!isApproved)", "handler = entry->second;\n    }\n    if (isApproved)", "engine_test"),
    ("EventManager.cpp", "        const MutexLock lock(mutex);\n        isApproved", "        isApproved", ANNOTATIONS),
    ("Handoff.cpp", "answered.notify_one();", "", "engine_test"),
    ("Handoff.cpp", "        const MutexLock lock(mutex);\n        drain(", "        drain(", ANNOTATIONS),
    ("Handoff.cpp", "drain(fd, sizeof(uint64_t), LOG_ERROR);\n        signalled", "signalled", "engine_test"),
    ("Handoff.cpp", "            requestSlot = nullptr;\n        }\n    }", "        }\n    }", "engine_test"),
    ("LocalLogBuffer.cpp", "entries.size() <= capacity", "entries.size() < capacity", "logging_test"),
    ("LocalLogBuffer.cpp", "newest < capacity ?", "newest + 1 < capacity ?", "logging_test"),
    ("LocalLogBuffer.cpp", "now.tv_usec) / 1000", "now.tv_usec) / 10000", "logging_test"),
    ("LocalLogBuffer.cpp", " || !sameZone", "", "logging_test"),
    ("LocalLogBuffer.cpp", "        tzset();", "        ", "logging_test"),
    ("LocalLogBuffer.cpp", "    line.clear();\n", "", "logging_test"),
    ("LocalLogBuffer.cpp", "    const MutexLock lock(mutex);  // from", "    // from", ANNOTATIONS),
    ("LogWrapper.cpp", "kLongest = 511", "kLongest = 510", "limits_test"),
    ("LogWrapper.cpp", "if (!piece) return false;", "if (!piece) continue;", "logging_test"),
    ("LogWrapper.cpp", "if (writing != 0) return;", "", "logging_test"),
    ("LogWrapper.cpp", " && log.anyReplaced) log.destroyReplaced();", " && log.anyReplaced) {}", "logging_test"),
    ("LogWrapper.h", "level == LOG_API || level == LOG_ERROR", "level >= LOG_ERROR", "logging_test"),
    ("Manager.cpp", '"Error in getProfile"', '"Unable to cast to GetResponse"', "manager_test"),
    ("Manager.cpp", "if (status == START) {", "if (status == COMPLETE) {", "manager_test"),
    ("Manager.cpp", "    auto next = std::make_unique<ClientRequestManager>(instance);", "    engine.reset();\n    auto next = std::make_unique<ClientRequestManager>(instance);", "manager_test"),
    ("Manager.cpp", "lines.emplace_back();\n", "", "manager_test"),
    ("Modem3gpp2Profile.cpp", "if (query.asks3gpp) return false;", "", "model_test"),
    ("Modem3gpp2Profile.cpp", "put(password, m.pdn_level_password_3gpp2_valid, m.pdn_level_password_3gpp2);", "", "model_test"),
    ("Modem3gppProfile.cpp", "if (!home || !roam) return;", "if (!home) return;", "model_test"),
    ("Modem3gppProfile.cpp", "valid && type != WDS_COMMON_PDP_TYPE_NOT_SET_V01", "valid", "model_test"),
    ("Modem3gppProfile.cpp", "} else if (params.hasFilterByIsZemProfile()) {", "}\n    if (params.hasFilterByIsZemProfile()) {", "model_test"),
    ("Modem3gppProfile.cpp", "copyPresent(same->umtsRoamIPType, umtsRoamIPType);", "", "model_test"),
    ("Modem3gppProfile.cpp", "overrideHome = IPType::UNKNOWN;", "overrideHome = home;", "model_test"),
    ("ModemProfile.cpp", "response.persistent_valid && response.persistent", "response.persistent_valid", "profile_test"),
    ("ModemProfile.cpp", "if (expired(listener)) continue;", "", "profile_test"),
    ("ModemProfile.cpp", "held = convertToCommonApnTypeMask(*apnTypesMask)", "held = static_cast<unsigned>(*apnTypesMask)", "cache_test"),
    ("ModemProfile.cpp", "(subset ? held & asked : held) == asked", "(subset ? held & asked : asked) == held", "model_test"),
    ("ModemProfile.cpp", "params.hasIsApnDisabled() || ", "", "model_test"),
    ("ModemProfile.cpp", "params.hasAuthType() ||", "", "model_test"),
    ("ModemProfile.cpp", "apnName->size() > query.apnName->size()", "apnName->size() < query.apnName->size()", "model_test"),
    ("ModemProfile.cpp", "(profileSet & ~filterSet) == 0", "(profileSet & filterSet) != 0", "model_test"),
    ("ProfileCache.cpp", "profile.getRefCount() >= 2", "profile.getRefCount() > 2", "model_test"),
    ("ProfileCache.cpp", "profile.getIsPersistent() || ", "", "model_test"),
    ("ProfileCache.cpp", "profile->setIsZemCreated(true);", "", "cache_test"),
    ("ProfileCache.cpp", "if (!profile) return true;", "if (!profile) return false;", "cache_test"),
    ("ProfileCache.cpp", "find(key, LOG_API)", "find(key, LOG_ERROR)", "cache_test"),
    ("ProfileCache.cpp", "    expectEcho(params.getTechType(), profile->getProfileId(), ProfileChangedEvent::Modify);", "", "model_test"),
    ("ProfileCache.cpp", "if (absorbEcho(ind)) {", "if (absorbEcho(ind) && false) {", "cache_test"),
    ("ProfileCache.cpp", "    old.clear();\n", "", "cache_test"),
    ("ProfileCache.cpp", "    const MutexLock lock(mutex);\n    pendingTransactions.push_back", "    pendingTransactions.push_back", ANNOTATIONS),
    ("ProfileCache.cpp", "profile.clearExpiredListeners();", "", "cache_test"),
    ("ProfileCache.cpp", "    std::shared_ptr<ModemProfile> gone;  // outlives the lock: its listeners run when it goes\n    const MutexLock lock(mutex);\n", "    const MutexLock lock(mutex);\n    std::shared_ptr<ModemProfile> gone;\n", "engine_test"),
    ("ProfileCache.cpp", " && entry->token == token)", ")", "cache_test"),
    ("ProfileCache.cpp", "while (!next.compare_exchange_weak(token, token + 1));", "while (next.store(token + 1), false);", "cache_test"),
    ("ProfileConversions.cpp", "{APN_TYPE_MCX, 0x800}", "{APN_TYPE_MCX, 0x400}", "conversions_test"),
    ("ProfileConversions.cpp", "profileId & 0xFF", "profileId", "conversions_test"),
    ("ProfileConversions.cpp", "kMaxApnLength = WDS_APN_SIZE_V01 - 1", "kMaxApnLength = WDS_APN_SIZE_V01", "model_test"),
    ("ProfileKey.cpp", "request->setReleaseToken(token);\n    processRequest", "processRequest", "cache_test"),
    ("ProfileParams.cpp", "    this->isIAProfile = isIAProfile;\n", "", "params_test"),
    ("ProfileChangedInd.cpp", '{ProfileChangedEvent::Delete, "Delete"}', '{ProfileChangedEvent::Delete, "Modify"}', "model_test"),
    ("SettingRules.h", "strnlen(setting->c_str(), N - 1)", "strnlen(setting->c_str(), N)", "limits_test"),
    ("SettingRules.h", "(held && *held == *asked)", "(!held || *held == *asked)", "model_test"),
    ("Util.cpp", "if (!key && !profileUpdateAllowed) {", "if (!key) {", "util_test"),
    ("Util.cpp", "if (!profileUpdateAllowed && !profile->getIsZemProfile())", "if (!profileUpdateAllowed)", "util_test"),
    ("Util.cpp", "if (v6Placed && base == 0) return;", "if (base == 0) return;", "util_test"),
    ("Util.cpp", "target | v4Mask, apnName", "target, apnName", "util_test"),
    ("Util.cpp", "profile && !isZemButNotIA(*profile)) {\n            ZEM_LOG(LOG_API, \"zem Found an", "profile) {\n            ZEM_LOG(LOG_API, \"zem Found an", "util_test"),
    ("Util.cpp", "copyIPTypes(params, update);\n    FilterProfileParams own", "FilterProfileParams own", "util_test"),
    ("Util.cpp", "profile(params, true, TechType::TECH_3GPP, false);", "profile(params, false, TechType::TECH_3GPP, false);", "util_test"),
    ("ZapWdsProxy.cpp", "request.profile_type_valid = 1;", "", "proxy_test"),
    ("ZapWdsProxy.cpp", "config.report_own_changes = 1;", "", "proxy_test"),
    ("ZapWdsProxy.cpp", "if (i == WDS_PROFILE_LIST_MAX_V01)", "if (i == WDS_PROFILE_LIST_MAX_V01 - 1)", "limits_test"),
    ("ZapWdsProxy.cpp", "           response.resp.result == 0;", "           true;", "model_test"),
    ("ZapWdsProxy.cpp", "notifier.reset();  // before", "// before", "proxy_test"),
    ("ZapWdsProxy.cpp", "event >= WDS_PROFILE_EVENT_CREATE_V01 && ", "", "model_test"),
    ("ZapWdsProxy.cpp", "indQueue.front()", "indQueue.back()", "proxy_test"),
    ("ZapWdsProxy.cpp", "if (!ZEM_SEND(ZAP_WDS_GET_PROFILE_LIST_REQ_V01, request, response)) break;", "if (!ZEM_SEND(ZAP_WDS_GET_PROFILE_LIST_REQ_V01, request, response)) continue;", "model_test"),
    ("ZapWdsProxy.cpp", "    notifier.reset();\n    client.reset();\n", "", "proxy_test"),
    ("ZapWdsProxy.cpp", "if (size > 0 && turns > 0)", "if (size > 0)", "engine_test"),
    ("ZapWdsProxy.cpp", "if (size > 0) indicationFd.signal();", "", "limits_test"),
    ("ZapWdsProxy.cpp", "(released && ind.client == released) ||", "", "proxy_test"),
    ("ZapWdsProxy.cpp", "        const MutexLock lock(proxy->queueMutex);\n", "", ANNOTATIONS),
]


def build(preset, *targets):
    command = ["cmake", "--build", "--preset", preset, "--target", *targets]
    return subprocess.run(command, cwd=TREE, capture_output=True, text=True)


def prepare():
    """A copy of the sources, without what the former copy has built being lost."""
    TREE.mkdir(parents=True, exist_ok=True)
    files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, check=True)
    for name in files.stdout.decode().split("\0"):
        source, target = ROOT / name, TREE / name
        if not (ROOT / name).is_file() or (target.is_file() and target.read_bytes() == source.read_bytes()):
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)
    # A change may leave something unused behind, which is no matter but for the annotations.
    for preset, strict in ("default", "OFF"), ("clang", "ON"):
        subprocess.run(["cmake", "--preset", preset, "-DCMAKE_BUILD_TYPE=Debug",
                        f"-DZEM_WARNINGS_AS_ERRORS={strict}"], cwd=TREE, check=True,
                       capture_output=True)


def survives(test):
    """What went on as if nothing had happened; empty when the change was noticed."""
    if test == ANNOTATIONS:
        return "" if build("clang", "zem_objects").returncode else "compiles"
    if result := build("default", test).returncode:
        return f"does not build ({result})"
    try:
        run = subprocess.run([TREE / "build/default/bin" / test, "--gtest_brief=1",
                              "--gtest_fail_fast"], cwd=TREE, capture_output=True, timeout=60)
    except subprocess.TimeoutExpired:
        return ""
    return "" if run.returncode else "passes"


def main(words):
    chosen = [m for m in MUTANTS if not words or any(w in " ".join(m) for w in words)]
    if not chosen:
        sys.exit(f"no change has one of these words: {' '.join(words)}")
    prepare()
    for test in sorted({test for *_, test in chosen} - {ANNOTATIONS}):
        if build("default", test).returncode or not survives(test):
            sys.exit(f"{test} fails on the sources as they are")
    failed = 0
    for number, (file, was, becomes, test) in enumerate(chosen, 1):
        path = TREE / "src" / file
        text = path.read_text()
        if text.count(was) == 1:
            path.write_text(text.replace(was, becomes))
            outcome = survives(test)
            path.write_text(text)
        else:
            outcome = f"stands there {text.count(was)} times"
        failed += bool(outcome)
        print(f"{number:3} {file}: {' '.join(was.split())[:60]}: {test}:", outcome or "noticed", flush=True)
    print(f"{len(chosen) - failed} of {len(chosen)} changes noticed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
