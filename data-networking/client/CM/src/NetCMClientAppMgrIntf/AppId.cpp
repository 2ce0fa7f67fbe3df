// The calling application's id.
#include "client/CM/src/NetCMPrivate.h"

extern "C" {

int NetCMClientGetAppId(int32_t* appId) {
    int error = 0;
    if (app_get_current_id(appId, &error) == 0) {
        QV_TRACE(3, "Getting application ID failed. Error code = %d\n", error);
        return 0;
    }
    QV_TRACE(2, "Application ID = %d\n", *appId);
    return 1;
}

}  // extern "C"
