// A shared object that is not a Lumaveil plug-in: it lacks the entry point.
extern "C" __attribute__((visibility("default"))) int someOtherFunction()
{
    return 42;
}
