// Level description parser: items at ",", fields at "=", empty ones dropped.
#include "levels/levelDescriptionParser.h"

#include <boost/tokenizer.hpp>
#include <vector>

#include "base/strtol32.h"

namespace vx {

void parseLevelDescriptions(vexlor_component& component, const std::string& descriptions)
{
    using Tokenizer = boost::tokenizer<boost::char_separator<char>>;
    const boost::char_separator<char> itemSeparator(",");
    const boost::char_separator<char> fieldSeparator("=");
    for (const std::string& item : Tokenizer(descriptions, itemSeparator)) {
        const Tokenizer fields(item, fieldSeparator);
        const std::vector<std::string> parts(fields.begin(), fields.end());
        if (parts.size() != 2) {
            continue;
        }
        // Stored as unsigned two's complement: "-1" becomes 4294967295.
        const auto number = static_cast<unsigned int>(strtol32(parts[0].c_str()));
        component.levelDescriptions.emplace_back(number, parts[1]);
    }
}

}  // namespace vx
