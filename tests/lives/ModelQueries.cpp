// What may come of the calls that ask something: the answer must be one to this question.
#include <algorithm>

#include "Model.h"
#include "common/PmWire.h"

namespace quorvel::lives {

// False: the result is none that an exchange has by itself.
bool Model::judge_exchange(Op& op, uint32_t result, const Asked& asked, std::optional<uint32_t> ticket) {
    if (is_settled(op, result) || is_refusal(op, result, asked))
        return true;
    if (result != NETCM_SUCCESS)
        return false;
    if (ticket ? !ledger_.take(*ticket, asked, op.begun) : !ledger_.was_given(asked, op.begun))
        reject(op, result, "with an answer to something else");
    return true;
}

void Model::exchanged(Op& op, uint32_t result, const Asked& asked, std::optional<uint32_t> ticket) {
    const Lock lock(mutex_);
    if (!judge_exchange(op, result, asked, ticket))
        reject(op, result);
    end(op);
}

void Model::exchanged_for_call(Op& op, uint32_t result, const Asked& asked, std::optional<uint32_t> ticket) {
    const Lock lock(mutex_);
    if (result == NETCM_ERR_NOT_REGISTERED) {
        history_.note(op.user, "%s = %u", op.name, result);
        const bool has_call = std::any_of(op.held.begin(), op.held.end(),
                                          [&](uint64_t number) { return is_surely_there(number); });
        if (has_call && !op.broken && registrations_.was_somebody_always_in(op.instances))
            reject(op, result, "but there is a call");
    } else if (!judge_exchange(op, result, asked, ticket)) {
        reject(op, result);
    }
    end(op);
}

void Model::listed(Op& op, uint32_t result, const Asked& asked, uint32_t count, uint32_t ticket) {
    const Lock lock(mutex_);
    const Asked empty{asked.command, asked.detail + 100};
    if (result == NETCM_ERR_NOT_ACTIVE) {
        is_settled(op, result);
        if (count != 0 || !ledger_.was_given(empty, op.begun))
            reject(op, result, "but the server has not said so");
    } else if (!judge_exchange(op, result, asked, ticket)) {
        reject(op, result);
    }
    if (op.user < kUsers && result != NETCM_SUCCESS && result != NETCM_ERR_NOT_REGISTERED) {
        std::vector<int32_t>& error = errors_[static_cast<size_t>(op.user)];
        if (result == NETCM_ERR_FAILURE || result == NETCM_ERR_REREGISTER_FAILED)
            error.clear();
        else
            error = {-1};
    }
    end(op);
}

// No is also what every failure gives.
void Model::agreed(Op& op, bool yes, const Asked& asked) {
    const Lock lock(mutex_);
    history_.note(op.user, "%s(%d): %s", op.name, op.argument, yes ? "yes" : "no");
    Asked refused = asked;
    refused.refused = true;
    const bool excused =
        !registrations_.was_somebody_always_in(op.instances) || op.broken || op.away || has(kSignals);
    if (yes ? !ledger_.was_given(asked, op.begun) : !excused && !ledger_.was_given(refused, op.begun))
        reject(op, yes ? 1 : 0, "but the server has said otherwise");
    end(op);
}

void Model::looked_up(Op& op, uint32_t result, const NetCMConnInfo& info) {
    const Lock lock(mutex_);
    const bool settled = is_settled(op, result);
    if (result == NETCM_SUCCESS) {
        const auto address = address_of_lookup(info);
        if (!address || info.ProfileId != op.profile)
            reject(op, result, "with details that do not fit together");
        const Connection* connection = truth_.find(address->serial);
        if (std::find(op.serials.begin(), op.serials.end(), address->serial) == op.serials.end() ||
            connection == nullptr || !connection->told_up || address->change > connection->changes)
            reject(op, result, "with the details of connection " + std::to_string(address->serial));
    } else if (result == NETCM_ERR_NOT_ACTIVE) {
        const bool is_up = std::any_of(op.up.begin(), op.up.end(),
                                       [&](uint64_t number) { return uses_.is_still_there(number); });
        // Who is closing may have lost his place to the next connection already.
        if (is_up && !op.broken && !op.saw_closing)
            reject(op, result, "but it is up");
    } else if (!settled) {
        reject(op, result);
    }
    end(op);
}

void Model::transport_error(Op& op, uint32_t result, int32_t error) {
    const Lock lock(mutex_);
    const bool settled = is_settled(op, result);
    history_.note(op.user, "the transport error is %d", error);
    if (result == NETCM_SUCCESS) {
        const std::vector<int32_t>& known = errors_[static_cast<size_t>(op.user)];
        if (!known.empty() && std::find(known.begin(), known.end(), error) == known.end())
            reject(op, result, "the error is " + std::to_string(error) + ", not " + std::to_string(known[0]));
    } else if (!settled) {
        reject(op, result);
    }
    end(op);
}

void Model::tunnelled(Op& op, uint32_t result, uint32_t id) {
    const Lock lock(mutex_);
    const Asked asked{wire::NETCM_CLIENT_TUNNEL_REQ, static_cast<uint32_t>(op.argument)};
    if (is_settled(op, result)) {
        if (op.user < kUsers && result != NETCM_ERR_NOT_REGISTERED)
            errors_[static_cast<size_t>(op.user)].clear();
    } else if (result == NETCM_SUCCESS) {
        if (!ledger_.take(id, asked, op.begun))
            reject(op, result, "with the id " + std::to_string(id) + ", which is not its own");
        const std::string wrong = tunnels_.accepted(id, op.user, registrations_.instance(op.user));
        if (!wrong.empty())
            reject(op, result, wrong);
    } else if (result == NETCM_ERR_NO_FREE_TUNNEL_ENTRY) {
        if (op.places <= NETCM_MAX_TUNNELS)
            reject(op, result, "but there is room");
    } else if (is_refusal(op, result, asked)) {
        errors_[static_cast<size_t>(op.user)] = {static_cast<int32_t>(result) + 1};
    } else {
        reject(op, result);
    }
    end(op);
}

void Model::asked_proper_profile(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    if (!is_settled(op, result) && result != NETCM_SUCCESS)
        reject(op, result);
    if (result == NETCM_SUCCESS)
        proper_.keep(op.place, op.user >= kUsers || !op.was_registered || may_be_lost(op));
    else
        proper_.give_back(op.place);
    end(op);
}

}  // namespace quorvel::lives
