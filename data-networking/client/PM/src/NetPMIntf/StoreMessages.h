// What each operation on the profile store traces: as it asks, when it is refused, when it has succeeded.
//
// Rows X(command, sent, refused, done). In their order: `request` is at hand in the first, `error` in the
// second and `profile` in the third. Some name a neighbour's function; logs are searched by these words.
#pragma once

#define SENT(...) QV_TRACE(2, __VA_ARGS__)
#define REFUSED(format) QV_TRACE(3, format, error)
#define DONE(...) QV_TRACE(2, __VA_ARGS__)

// clang-format off
#define QV_STORE_MESSAGES(X)                                                                             \
    X(NETPM_CLIENT_ADD_PROFILE_REQ,                                                                      \
      ,                                                                                                  \
      REFUSED("Error modified profile, Error = %d \n"),                                                  \
      DONE("Successfully added a new profile, profile id is %d \n", profile))                            \
    X(NETPM_CLIENT_MODIFY_PROFILE_REQ,                                                                   \
      SENT("NetPMAddProfile: NETPM_CLIENT_MODIFY_PROFILE_REQ\n"),                                        \
      REFUSED("Error modifying profile, Error = %d \n"),                                                 \
      DONE("Successfully modified the profile, profile id is %d \n", profile))                           \
    X(NETPM_CLIENT_DELETE_PROFILE_REQ,                                                                   \
      SENT("NetPMDeleteProfile: NETPM_CLIENT_DELETE_PROFILE_REQ profileID =%d\n", request.profile_id),   \
      REFUSED("Error Deleting the profile,, Error = %d \n"),                                             \
      DONE("Successfully deleted profile, profile id is %d \n", profile))                                \
    X(NETPM_CLIENT_GET_PROFILE_REQ,                                                                      \
      SENT("NetPMGetProfileInfo: NETPM_CLIENT_GET_PROFILE_REQ profileID =%d\n", request.profile_id),     \
      REFUSED("Error Getting the profile, Error = %d \n"),                                               \
      DONE("Successfully Retrived profile information , profile id is %d \n", profile))                  \
    X(NETPM_CLIENT_GET_PROFILE_STATUS_REQ,                                                               \
      SENT("NetPMGetProfileAttributes: NETPM_CLIENT_GET_PROFILE_STATUS_REQ\n"),                          \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully Retrived information , profile id is %d \n", profile))                          \
    X(NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ,                                                              \
      SENT("NetPMGetDefaultProfileInfo: NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ \n"),                       \
      REFUSED("Error Getting the profile, Error = %d \n"),                                               \
      DONE("Successfully Retrived profile information , profile id is %d \n", profile))                  \
    X(NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ,                                                           \
      SENT("NetPMGetDefaultProfileId: NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ\n"),                       \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully Retrived information , profile id is %d \n", profile))                          \
    X(NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ,                                                           \
      SENT("NetPMSetDefaultProfileId: NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ profileID =%d\n",          \
           request.profile_id),                                                                          \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully Set Default profile ID , profile id is %d \n", profile))                        \
    X(NETPM_CLIENT_GET_POFILE_LIST_REQ,                                                                  \
      SENT("NetPMGetProfileIdList: NETPM_CLIENT_GET_POFILE_LIST_REQ\n"),                                 \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully Retrived profile ID list information\n"))                                       \
    X(NETPM_CLIENT_RESTORE_PROFILES_REQ,                                                                 \
      SENT("NetPMRestoreProfileInfo: NETPM_CLIENT_RESTORE_PROFILES_REQ\n"),                              \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully restored profile information\n"))                                               \
    X(NETPM_CLIENT_GET_PROFILE_ATTR_REQ,                                                                 \
      SENT("NetPMGetProfileAttributes: NETPM_CLIENT_GET_PROFILE_ATTR_REQ\n"),                            \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully Retrived information , profile id is %d \n", profile))                          \
    X(NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ,                                                         \
      SENT("Request to get PDP Profile parameters list\n");                                              \
      SENT("NetPMGetProfileInfo: NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ Profile Type = %d\n",         \
           request.arg),                                                                                 \
      REFUSED("Error reading profiles, Error = %d \n"),                                                  \
      DONE("Successfully read the partial profile param list\n"))                                        \
    X(NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ,                                                           \
      SENT("NetPMGetProfileIdList: NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ\n"),                          \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully received profile ID list \n"))                                                  \
    X(NETPM_CLIENT_FIND_PROFILE_IDS_REQ,                                                                 \
      SENT("NetPMGetFindProfileIds: NETPM_CLIENT_FIND_PROFILE_IDS_REQ\n"),                               \
      REFUSED("Error = %d \n"),                                                                          \
      DONE("Successfully received profile ID list \n"))
// clang-format on
