extern "C" int neededAnswer();

extern "C" int neededAnswer() {
    return 0;
}
