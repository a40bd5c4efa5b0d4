#include "types/vocabulary.h"

#include "common/text.h"
#include "types/vocabularyTables.h"

namespace tql {

namespace {

using Names = std::map<std::uint32_t, std::string>;

struct Vocabulary {
    Names classes;
    Names properties;
    bool loaded = false;
};

void load(Vocabulary& vocabulary)
{
    for (std::uint32_t number = 0; number < class_positions; ++number) {
        if (class_table[number] != nullptr)
            vocabulary.classes.emplace(number, class_table[number]);
    }
    for (const property_entry* entry = property_table; entry->name != nullptr; ++entry)
        vocabulary.properties.emplace(entry->number, entry->name);
}

const Vocabulary& loadedVocabulary()
{
    static Vocabulary vocabulary;
    if (!vocabulary.loaded) {
        load(vocabulary);
        vocabulary.loaded = true;
    }
    return vocabulary;
}

std::string nameIn(const Names& names, std::uint32_t number, const char* kind)
{
    const auto found = names.find(number);
    if (found != names.end())
        return found->second;
    return std::string("<unknown ") + kind + ": " + uintToString(number) + ">";
}

}  // namespace

const std::map<std::uint32_t, std::string>& classNames()
{
    return loadedVocabulary().classes;
}

const std::map<std::uint32_t, std::string>& propertyNames()
{
    return loadedVocabulary().properties;
}

std::string className(std::uint32_t number)
{
    return nameIn(classNames(), number, "class");
}

std::string propertyName(std::uint32_t number)
{
    return nameIn(propertyNames(), number, "property");
}

}  // namespace tql
