// What may come of the calls that change who is registered and who uses what.
#include <algorithm>

#include "Model.h"
#include "common/Wire.h"

namespace quorvel::lives {

void Model::registered(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    history_.note(op.user, "%s = %u", op.name, result);
    registrations_.has_arrived(op.user, result == NETCM_SUCCESS);
    switch (result) {
        case NETCM_SUCCESS:
            if (op.was_registered)
                reject(op, result, "but it is registered");
            errors_[static_cast<size_t>(op.user)].clear();
            break;
        case NETCM_ERR_ALREADY_REGISTERED:
            if (!op.was_registered)
                reject(op, result, "but it is not registered");
            break;
        case NETCM_ERR_NO_FREE_ENTRY:
            if (op.most < NETCM_MAX_THREADS)
                reject(op, result, "but there is room");
            break;
        case NETCM_ERR_REREGISTER_RETRY_EXHAUSTED:
            if (!op.away && !has(kSignals))
                reject(op, result, "but the server was there");
            break;
        default:
            reject(op, result);
    }
    end(op);
}

void Model::deregistered(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    history_.note(op.user, "%s = %u", op.name, result);
    if (op.user < kUsers)
        registrations_.has_left(op.user, result == NETCM_SUCCESS && op.was_registered);
    switch (result) {
        case NETCM_SUCCESS:
            if (!op.was_registered)
                reject(op, result, "but it was not registered");
            for (int32_t profile = 1; profile <= kProfiles; ++profile) {
                const Use* use = uses_.find(op.user, profile);
                // Of a lost link nothing is left but to tell it.
                if (use != nullptr && !use->perhaps_gone && !op.broken)
                    reject(op, result, "but it has profile " + std::to_string(profile) + " open");
                uses_.drop(op.user, profile);
            }
            break;
        case NETCM_ERR_NOT_REGISTERED:
            if (op.was_registered)
                reject(op, result, "but it is registered");
            break;
        case NETCM_ERR_ALREADY_EXISTS:
            if (!op.had_use)
                reject(op, result, "but it has nothing open");
            break;
        default:
            reject(op, result);
    }
    end(op);
}

void Model::opened(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    const bool settled = is_settled(op, result);
    if (op.opening) {
        // With signals, a start that the server takes up now may be that of an earlier open.
        std::optional<int> exact;
        if (op.alone && !op.starts.empty() && !has(kSignals))
            exact = op.starts.back();
        const std::string wrong = result == NETCM_SUCCESS ? uses_.opened(op.user, op.profile, exact)
                                                          : uses_.not_opened(op.user, op.profile);
        if (!wrong.empty())
            reject(op, result, wrong);
    } else if (result == NETCM_SUCCESS) {
        reject(op, result, "of no profile");
    }
    std::vector<int32_t> error = {-1};
    bool has_error = false;
    if (settled) {
        has_error = result != NETCM_ERR_NOT_REGISTERED;
        error.clear();
    } else if (result == kStatusWithReason) {
        if (op.reasons.empty())
            reject(op, result, "but the server has not refused");
        has_error = true;
        error = op.reasons;
    } else if (is_refusal(op, result, {wire::NETCM_CLIENT_START_REQ, static_cast<uint32_t>(op.profile)})) {
        has_error = true;
    } else if (is_refusal(op, result, {wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ})) {
        has_error = true;
        error.clear();
    } else if (result == NETCM_ERR_ALREADY_EXISTS) {
        if (!op.had_use)
            reject(op, result, "but the thread does not have it");
    } else if (result == NETCM_ERR_CALL_CLOSING) {
        if (!op.saw_closing)
            reject(op, result, "but nobody closes or kills it");
    } else if (result == NETCM_ERR_MAX_LIMIT) {
        if (op.most < NETCM_MAX_THREADS)
            reject(op, result, "but there is room in every call");
    } else if (result == NETCM_ERR_INVALID_PROFILE) {
        if (op.argument != 0 || op.opening)
            reject(op, result, "but there is such a profile");
    } else if (result != NETCM_SUCCESS) {
        reject(op, result);
    }
    if (has_error && op.user < kUsers)
        errors_[static_cast<size_t>(op.user)] = error;
    end(op);
}

void Model::closed(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    const bool settled = is_settled(op, result);
    Use* use = uses_.find(op.user, op.profile);
    if (use != nullptr && use->number != op.use)
        use = nullptr;
    if (use != nullptr) {
        use->closing = result == NETCM_SUCCESS || op.was_closing;
        use->left_closing |= result == NETCM_ERR_FAILURE || result == NETCM_ERR_REREGISTER_FAILED;
        use->perhaps_gone &= result != NETCM_SUCCESS;
    }
    if (settled) {
        if (result != NETCM_ERR_NOT_REGISTERED && op.user < kUsers)
            errors_[static_cast<size_t>(op.user)].clear();
    } else if (result == NETCM_ERR_NOT_ACTIVE) {
        if (use != nullptr && !use->perhaps_gone && !op.broken && !op.saw_closing)
            reject(op, result, "but the thread has it open");
        // What was lost with its link is not there any more, and still has to be told.
        if (use != nullptr && use->perhaps_gone && !op.broken)
            uses_.drop(op.user, op.profile);
    } else if (result != NETCM_SUCCESS) {
        reject(op, result);
    } else if (!op.had_use) {
        reject(op, result, "but the thread does not have it open");
    }
    end(op);
}

// The killer's own use is gone at once, unless it has only joined the kill of another thread, or the end of
// the server was there first.
void Model::kill_accepted(const Op& op, int32_t profile) {
    Use* use = uses_.find(op.user, profile);
    if (use == nullptr)
        return;
    if (op.saw_other_kill || op.broken)
        use->perhaps_gone = true;
    else
        uses_.drop(op.user, profile);
}

void Model::killed(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    const bool settled = is_settled(op, result);
    if (result == NETCM_SUCCESS) {
        kills_.keep(op.place, may_be_lost(op));
        kill_accepted(op, op.profile);
        end(op);
        return;
    }
    if (kills_.was_told(op.place))
        reject(op, result, "but it was told about");
    kills_.give_back(op.place);
    if (settled) {
        if (result != NETCM_ERR_NOT_REGISTERED && op.user < kUsers)
            errors_[static_cast<size_t>(op.user)].clear();
    } else if (result == NETCM_ERR_CLOSING) {
        if (!op.had_kill)
            reject(op, result, "but the thread has not killed it");
    } else if (result == NETCM_ERR_CALL_CLOSING) {
        if (!op.saw_closing)
            reject(op, result, "but nobody closes it");
    } else if (result == NETCM_ERR_NO_FREE_KILL_ENTRY) {
        if (op.places <= NETCM_MAX_KILLS)
            reject(op, result, "but there is room");
    } else {
        reject(op, result);
    }
    end(op);
}

// Which of its kills were accepted, it does not say.
void Model::cleaned_up(Op& op, uint32_t result) {
    const Lock lock(mutex_);
    // The list is the process's, a kill the thread's.
    const bool settled = (result == NETCM_ERR_NOT_REGISTERED && !op.was_registered) || is_settled(op, result);
    const bool is_of_a_kill = result == NETCM_ERR_CLOSING || result == NETCM_ERR_CALL_CLOSING ||
                              result == NETCM_ERR_NO_FREE_KILL_ENTRY;
    if (!settled && result != NETCM_SUCCESS && !is_of_a_kill &&
        !is_refusal(op, result, {wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, NETCM_IFACE_PDP}))
        reject(op, result);
    if (op.user < kUsers)
        errors_[static_cast<size_t>(op.user)].clear();
    end(op);
}

}  // namespace quorvel::lives
