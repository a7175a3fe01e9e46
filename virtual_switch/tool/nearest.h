// SPDX-License-Identifier: Apache-2.0
#ifndef VSWITCHCTL_NEAREST_H
#define VSWITCHCTL_NEAREST_H

#include <string>
#include <string_view>
#include <vector>

namespace vswitchctl {

// The one of `words` that `text` was most likely meant to be: what has the fewest letters wrong, too
// many or missing. Empty when none is near.
std::string nearest(std::string_view text, const std::vector<std::string> &words);

// The end of a sentence about a word that is none of `words`: "; the nearest is 'vsan'", or nothing.
std::string or_nearest(std::string_view text, const std::vector<std::string> &words);

} // namespace vswitchctl

#endif
