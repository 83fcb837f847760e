// Grammar of a `target` value: items at ",", pieces at "=", empty ones dropped, all trimmed.
#include "container/targetLine.h"

#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>
#include <vector>
#include <vexlor/vexlor_target.h>

namespace vx {

std::string parseTargetLine(const std::string& value, const std::string& appname,
                            std::map<std::string, std::string>& params)
{
    using Tokenizer = boost::tokenizer<boost::char_separator<char>>;
    const boost::char_separator<char> itemSeparator(",");
    const boost::char_separator<char> pieceSeparator("=");
    const Tokenizer items(value, itemSeparator);
    auto item = items.begin();
    // The first item is the path whatever it holds; an all-empty value gives an empty path.
    std::string libPath;
    if (item != items.end()) {
        libPath = boost::algorithm::trim_copy(*item);
        ++item;
    }
    for (; item != items.end(); ++item) {
        const Tokenizer pieces(*item, pieceSeparator);
        const std::vector<std::string> parts(pieces.begin(), pieces.end());
        if (parts.size() == 2) {
            params.emplace(boost::algorithm::trim_copy(parts[0]), boost::algorithm::trim_copy(parts[1]));
        }
    }
    params.emplace(TARGET_TOKEN_APPLICATION_NAME(), appname);
    return libPath;
}

}  // namespace vx
