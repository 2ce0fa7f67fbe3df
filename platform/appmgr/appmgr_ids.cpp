extern "C" __attribute__((visibility("default"))) int app_get_current_id(int*, int* error) {
    *error = 1;
    return 0;
}
