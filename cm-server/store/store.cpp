#include "store/store.h"

#include <algorithm>
#include <span>

#include "guard.h"
#include "protocol/message.h"
#include "store/check.h"
#include "store/fields.h"
#include "store/rescue.h"
#include "store/schema.h"

namespace quorvel::cm {
namespace {

constexpr const char* kTables[] = {"pdp_profile", "wlan_profile"};

using Fields = std::vector<const Field*>;

// The fields that a table keeps of this record.
Fields fields_of(const NetPMProfile& profile, std::string_view table) {
    Fields result;
    for (const Field& field : profile_fields())
        if (table == table_of(field.part) && has_part(profile, field.part))
            result.push_back(&field);
    return result;
}

std::string columns(const Fields& fields) {
    std::string list;
    for (const Field* field : fields)
        list += std::string(list.empty() ? "" : ", ") + field->column;
    return list;
}

std::string placeholders(size_t count) {
    std::string list = "?";
    while (--count > 0)
        list += ", ?";
    return list;
}

FieldValue column_value(Statement& row, int column, Field::Kind kind) {
    if (kind == Field::Kind::kText || kind == Field::Kind::kAddress)
        return row.text(column);
    return row.number(column);
}

// The record as its columns alone would give it back.
NetPMProfile named_content(const NetPMProfile& profile) {
    NetPMProfile named{};
    named.ProfileType = profile.ProfileType;
    named.ProfileAttr = profile.ProfileAttr;
    put_text(named.ProfileName, profile.ProfileName);
    for (const char* table : kTables)
        for (const Field* field : fields_of(profile, table))
            set_field(named, *field, get_field(profile, *field));
    return named;
}

std::vector<int32_t> all_ids(Statement statement) {
    std::vector<int32_t> result;
    while (statement.step())
        result.push_back(static_cast<int32_t>(statement.number(0)));
    return result;
}

}  // namespace

Store::Store(const std::string& path, std::vector<FactoryProfile> factory)
    : path_(path), lock_(path), database_(open_or_rescue(path)), factory_(std::move(factory)) {
    if (bring_up_to_date(database_))
        restore();
    keep_good_copy(path_);
    database_.wait_no_more();
    database_.when_committed([this] {
        if (changes_ != nullptr)
            changes_->on_change();
    });
}

Store::~Store() {
    guarded("the good copy of the store", [this] { keep_good_copy(path_); });
}

size_t Store::count_of(uid_t owner) {
    Statement row = database_.prepare("SELECT count(*) FROM profile WHERE owner = ?");
    return row.bind(owner).step() ? static_cast<size_t>(row.number(0)) : 0;
}

int32_t Store::add(const NetPMProfile& profile, uid_t owner) {
    check_profile(profile);
    Transaction transaction(database_);
    database_.prepare("INSERT INTO profile (type, name, attributes, owner) VALUES (?, '', 0, ?)")
        .bind(profile.ProfileType)
        .bind(owner)
        .run();
    const int32_t id = database_.last_inserted();
    write(id, profile);
    const auto after = connection(id);
    transaction.commit();
    tell({}, after);
    return id;
}

void Store::modify(int32_t id, const NetPMProfile& profile) {
    const NetPMProfile before = read(id);
    const auto used = connection(id);
    check_profile(profile);
    Transaction transaction(database_);
    write(id, profile);
    if (before.ProfileType != profile.ProfileType)
        database_.prepare("DELETE FROM default_profile WHERE profile = ?").bind(id).run();
    const auto after = connection(id);
    transaction.commit();
    tell(used, after);
}

void Store::remove(int32_t id) {
    const auto before = connection(id);
    database_.prepare("DELETE FROM profile WHERE id = ?").bind(id).run();
    if (database_.changed() == 0)
        throw PmRefusal(PM_ERR_UNKNOWN_PROFILE);
    tell(before, {});
}

void Store::write(int32_t id, const NetPMProfile& profile) {
    database_.prepare("UPDATE profile SET type = ?, name = ?, attributes = ? WHERE id = ?")
        .bind(profile.ProfileType)
        .bind(profile.ProfileName)
        .bind(profile.ProfileAttr)
        .bind(id)
        .run();
    for (const char* table : kTables)
        write_part(id, profile, table);
    write_rest(id, profile);
}

void Store::write_part(int32_t id, const NetPMProfile& profile, const char* table) {
    const std::string name = table;
    database_.prepare("DELETE FROM " + name + " WHERE profile = ?").bind(id).run();
    const Fields fields = fields_of(profile, table);
    if (fields.empty())
        return;
    Statement insert = database_.prepare("INSERT INTO " + name + " (profile, " + columns(fields) +
                                         ") VALUES (" + placeholders(fields.size() + 1) + ")");
    insert.bind(id);
    for (const Field* field : fields)
        std::visit([&](const auto& value) { insert.bind(value); }, get_field(profile, *field));
    insert.run();
}

// Bytes that no column keeps are the client's all the same: it gets back what it has stored.
void Store::write_rest(int32_t id, const NetPMProfile& profile) {
    database_.prepare("DELETE FROM profile_rest WHERE profile = ?").bind(id).run();
    NetPMProfile wanted = profile;
    NetPMProfile named = named_content(profile);
    wanted.ProfileId = named.ProfileId;
    const auto left = std::as_bytes(std::span(&wanted, 1));
    const auto right = std::as_bytes(std::span(&named, 1));
    for (size_t start = 0; start < left.size();) {
        if (left[start] == right[start]) {
            ++start;
            continue;
        }
        size_t end = start;
        while (end < left.size() && left[end] != right[end])
            ++end;
        database_.prepare("INSERT INTO profile_rest VALUES (?, ?, ?)")
            .bind(id)
            .bind(static_cast<int64_t>(start))
            .bind(left.subspan(start, end - start))
            .run();
        start = end;
    }
}

NetPMProfile Store::read(int32_t id) {
    Statement row = database_.prepare("SELECT type, name, attributes FROM profile WHERE id = ?");
    if (!row.bind(id).step())
        throw PmRefusal(PM_ERR_UNKNOWN_PROFILE);
    NetPMProfile profile{};
    profile.ProfileId = id;
    profile.ProfileType = static_cast<uint32_t>(row.number(0));
    put_text(profile.ProfileName, row.text(1));
    profile.ProfileAttr = static_cast<uint32_t>(row.number(2));
    read_part(id, profile, table_of(profile.ProfileType == NETPM_PROFILE_PDP ? Part::kPdp : Part::kWlan));
    Statement rest = database_.prepare("SELECT offset, bytes FROM profile_rest WHERE profile = ?");
    rest.bind(id);
    while (rest.step()) {
        const auto bytes = rest.bytes(1);
        const auto offset = static_cast<size_t>(rest.number(0));
        if (offset + bytes.size() <= sizeof(profile))
            std::ranges::copy(bytes, std::as_writable_bytes(std::span(&profile, 1)).begin() +
                                         static_cast<ptrdiff_t>(offset));
    }
    return profile;
}

void Store::read_part(int32_t id, NetPMProfile& profile, const char* table) {
    Fields fields;
    for (const Field& field : profile_fields())
        if (std::string_view(table) == table_of(field.part))
            fields.push_back(&field);
    Statement row = database_.prepare("SELECT " + columns(fields) + " FROM " + table + " WHERE profile = ?");
    if (!row.bind(id).step())
        return;
    // The security mode is set before the forms that it selects.
    for (const bool form : {false, true})
        for (size_t i = 0; i < fields.size(); ++i) {
            const Field& field = *fields[i];
            const bool in_form = field.part != Part::kPdp && field.part != Part::kWlan;
            if (in_form == form && has_part(profile, field.part))
                set_field(profile, field, column_value(row, static_cast<int>(i), field.kind));
        }
}

void Store::restore() {
    Transaction transaction(database_);
    database_.run("DELETE FROM profile");
    for (size_t i = 0; i < factory_.size(); ++i) {
        const auto id = static_cast<int32_t>(i + 1);
        const NetPMProfile& record = factory_[i].record;
        database_
            .prepare("INSERT INTO profile (id, type, name, attributes, interface) VALUES (?, ?, '', 0, ?)")
            .bind(id)
            .bind(record.ProfileType)
            .bind(factory_[i].interface)
            .run();
        write(id, record);
        const auto type = static_cast<NetPMProfileType>(record.ProfileType);
        if (factory_[i].is_default || !default_id(type))
            make_default(id, record.ProfileType);
    }
    transaction.commit();
    if (observer_ != nullptr)
        observer_->on_restored();
}

bool Store::is_as(int32_t id, const FactoryProfile& profile) {
    Statement row = database_.prepare("SELECT interface FROM profile WHERE id = ?");
    if (!row.bind(id).step() || row.text(0) != profile.interface)
        return false;
    NetPMProfile stored = read(id);
    stored.ProfileId = profile.record.ProfileId;
    if (!std::ranges::equal(std::as_bytes(std::span(&stored, 1)),
                            std::as_bytes(std::span(&profile.record, 1))))
        return false;
    return !profile.is_default || default_id(static_cast<NetPMProfileType>(stored.ProfileType)) == id;
}

std::vector<std::string> Store::differing() {
    std::vector<std::string> result;
    for (size_t i = 0; i < factory_.size(); ++i)
        if (const auto id = static_cast<int32_t>(i + 1); !is_as(id, factory_[i]))
            result.push_back(std::to_string(id) + " \"" + factory_[i].record.ProfileName + "\"");
    return result;
}

void Store::tell(const std::optional<Profile>& before, const std::optional<Profile>& after) const {
    if (observer_ == nullptr)
        return;
    if (after && !after->interface.empty())
        observer_->on_interface(after->kind, after->interface, 1);
    if (before && !before->interface.empty())
        observer_->on_interface(before->kind, before->interface, -1);
}

std::vector<int32_t> Store::ids(std::optional<NetPMProfileType> type, size_t most) {
    Statement statement =
        database_.prepare(type ? "SELECT id FROM profile WHERE type = ?1 ORDER BY id LIMIT ?2"
                               : "SELECT id FROM profile ORDER BY id LIMIT ?2");
    type ? statement.bind(int64_t{*type}) : statement.bind_null();
    statement.bind(static_cast<int64_t>(most));
    return all_ids(std::move(statement));
}

std::vector<int32_t> Store::find(NetPMProfileType type, const std::string& key, size_t most) {
    const char* sql = type == NETPM_PROFILE_PDP
                          ? "SELECT profile FROM pdp_profile WHERE apn = ? ORDER BY profile LIMIT ?"
                          : "SELECT profile FROM wlan_profile WHERE essid = ? ORDER BY profile LIMIT ?";
    Statement statement = database_.prepare(sql);
    statement.bind(key).bind(static_cast<int64_t>(most));
    return all_ids(std::move(statement));
}

std::optional<int32_t> Store::default_id(std::optional<NetPMProfileType> type) {
    Statement row = database_.prepare(
        "SELECT profile FROM default_profile WHERE type = ?1 OR ?1 IS NULL ORDER BY type LIMIT 1");
    type ? row.bind(int64_t{*type}) : row.bind_null();
    if (!row.step())
        return std::nullopt;
    return static_cast<int32_t>(row.number(0));
}

void Store::set_default(int32_t id) {
    make_default(id, read(id).ProfileType);
}

void Store::make_default(int32_t id, uint32_t type) {
    database_.prepare("INSERT OR REPLACE INTO default_profile VALUES (?, ?)").bind(type).bind(id).run();
}

}  // namespace quorvel::cm
