#pragma once

namespace libzentadbpp {

class ShownData;

// Restores what is live and not reached, step by step, until no step has an effect. What a step inserts is reached,
// with all that it leads to, before the next step:
// 1. Lists that are not merged into those of arrays: of this instance, then of each other one, ascending. The first
//    instance that lists a document decides its places: all those in its winning lists. Its other leaves add the rest,
//    once.
// 2. Lost elements: the list of any revision returns its elements to its array, or to the one that took its place.
//    Lists of this instance come first, then open ones of arrays that nothing shows, then the latest.
// 3. A lost member: a document that an earlier revision of a reached one had at a member that is now missing.
void recover_lost(ShownData& data);

}  // namespace libzentadbpp
