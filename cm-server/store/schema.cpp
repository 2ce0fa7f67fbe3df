#include "store/schema.h"

#include <array>

namespace quorvel::cm {
namespace {

// Step n brings a store of version n to version n + 1. A step that has been released is never changed.
constexpr std::array kSteps{
    R"sql(
CREATE TABLE profile (
    id         INTEGER PRIMARY KEY AUTOINCREMENT,
    type       INTEGER NOT NULL,
    name       TEXT    NOT NULL,
    attributes INTEGER NOT NULL,
    interface  TEXT    NOT NULL DEFAULT ''
);
CREATE TABLE pdp_profile (
    profile            INTEGER PRIMARY KEY REFERENCES profile ON DELETE CASCADE,
    proxy              TEXT,
    primary_profile    INTEGER,
    primary_profile_id INTEGER,
    protocol_type      INTEGER,
    apn                TEXT,
    address_type       INTEGER,
    static_address     INTEGER,
    address            TEXT,
    static_dns         INTEGER,
    primary_dns        TEXT,
    secondary_dns      TEXT,
    qos_type           INTEGER,
    traffic_class      INTEGER,
    auth_type          INTEGER,
    user_name          TEXT,
    password           TEXT,
    gateway            TEXT,
    net_mask           TEXT,
    home_url           TEXT,
    secure_connection  INTEGER,
    app_protocol       INTEGER,
    linger_time        INTEGER
);
CREATE TABLE wlan_profile (
    profile                INTEGER PRIMARY KEY REFERENCES profile ON DELETE CASCADE,
    proxy                  TEXT,
    essid                  TEXT,
    bssid                  TEXT,
    frequency              INTEGER,
    rate                   INTEGER,
    standard               INTEGER,
    mode                   INTEGER,
    security_mode          INTEGER,
    encryption_mode        INTEGER,
    wep_key_0              TEXT,
    wep_key_1              TEXT,
    wep_key_2              TEXT,
    wep_key_3              TEXT,
    wep_key_index          INTEGER,
    psk                    TEXT,
    eap_user_name          TEXT,
    eap_password           TEXT,
    eap_ca_certificate     TEXT,
    eap_client_certificate TEXT,
    eap_private_key        TEXT,
    eap_key_password       TEXT,
    eap_type               INTEGER,
    address_type           INTEGER,
    ip_config_type         INTEGER,
    address                TEXT,
    gateway                TEXT,
    net_mask               TEXT,
    dns_config_type        INTEGER,
    primary_dns            TEXT,
    secondary_dns          TEXT,
    interface              TEXT
);
CREATE TABLE profile_rest (
    profile INTEGER NOT NULL REFERENCES profile ON DELETE CASCADE,
    offset  INTEGER NOT NULL,
    bytes   BLOB    NOT NULL,
    PRIMARY KEY (profile, offset)
);
CREATE TABLE default_profile (
    type    INTEGER PRIMARY KEY,
    profile INTEGER NOT NULL REFERENCES profile ON DELETE CASCADE
);
CREATE TABLE application (
    id         INTEGER PRIMARY KEY,
    param      INTEGER NOT NULL DEFAULT 0,
    profile    INTEGER REFERENCES profile ON DELETE SET NULL,
    interface0 INTEGER NOT NULL DEFAULT 0,
    interface1 INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE payment (
    id      INTEGER PRIMARY KEY CHECK (id = 0),
    csc     INTEGER NOT NULL,
    payment INTEGER NOT NULL
);
)sql",
    R"sql(
CREATE INDEX profile_type ON profile (type, id);
CREATE INDEX pdp_profile_apn ON pdp_profile (apn, profile);
CREATE INDEX wlan_profile_essid ON wlan_profile (essid, profile);
CREATE INDEX application_profile ON application (profile);
ALTER TABLE profile ADD COLUMN owner INTEGER NOT NULL DEFAULT 0;
CREATE INDEX profile_owner ON profile (owner);
)sql",
};

int64_t version_of(Database& database) {
    Statement statement = database.prepare("PRAGMA user_version");
    return statement.step() ? statement.number(0) : 0;
}

}  // namespace

bool bring_up_to_date(Database& database) {
    const auto current = static_cast<int64_t>(kSteps.size());
    const int64_t found = version_of(database);
    if (found > current)
        throw DatabaseError(database.name() + ": the store has version " + std::to_string(found) +
                            ", this server knows up to " + std::to_string(current));
    if (found == current)
        return false;
    Transaction transaction(database);
    for (int64_t step = found; step < current; ++step)
        database.run(kSteps.at(static_cast<size_t>(step)));
    database.run("PRAGMA user_version = " + std::to_string(current));
    transaction.commit();
    return found == 0;
}

}  // namespace quorvel::cm
