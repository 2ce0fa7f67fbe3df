// What the child of a fork does about the resolver: of the threads that used it only the one that forked is
// there, and what the others were at is neither finished nor whole.
#pragma once

namespace quorvel {

// Makes the resolver of this process one that has never been used: its locks are free, whoever held them; the
// lookups of the parent are forgotten; the cache is empty. For the child, right
// behind the fork. Allocates and frees nothing.
void resolver_in_child();

// The pieces of resolver_in_child, each beside what it forgets. Blocks of the parent stay where they are: a
// fork may have met them half changed.
void forget_result_in_child();
void forget_server_in_child();
void forget_workers_in_child();
void forget_queries_in_child();
void forget_cache_in_child();

}  // namespace quorvel
