extern "C" int neededAnswer();
extern "C" __attribute__((visibility("default"))) int probeAnswer();

extern "C" int probeAnswer() {
    return PROBE_ANSWER + neededAnswer();
}
