#include "device/common/PlainName.h"

#include <algorithm>

namespace {

bool isAsciiLetter(QChar character)
{
    return (character >= u'A' && character <= u'Z') || (character >= u'a' && character <= u'z');
}

bool isNameCharacter(QChar character)
{
    return isAsciiLetter(character) || (character >= u'0' && character <= u'9') || character == u'_';
}

} // namespace

bool isPlainName(const QString &text)
{
    return !text.isEmpty() && isAsciiLetter(text.front()) &&
           std::all_of(text.cbegin(), text.cend(), isNameCharacter);
}
