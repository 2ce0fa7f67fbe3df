extern "C" {
__attribute__((visibility("default"))) int EvtSysEventHandleExist(void*) {
    return 1;
}
__attribute__((visibility("default"))) int EvtSysLibraryOpen(void**) {
    return 0;
}
__attribute__((visibility("default"))) int EvtSysEventPublish(void*, const char*) {
    return 0;
}
}
