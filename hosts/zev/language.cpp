// conf/zev/<language>.lang, below the library's application data: a JSON object, of which each
// member's name is a text as it stands in the code, and its value the text in that language.
#include "language.hpp"

#include "host.hpp"

namespace host {

namespace {

Catalogue texts_of(Json *file) {
    Catalogue texts;
    HashmapIter *iter = zJsonIsObject(file) ? zJsonObjectNewiter(file) : nullptr;
    if (!iter) return texts;
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        const Variant *entry = iter->current(iter);
        const Json *text = static_cast<const Json *>(entry->next->value.pointer);
        if (zJsonIsString(text))
            texts.emplace(narrow(entry->value.wide), narrow(zJsonGetString(text)));
    }
    iter->free(iter);
    return texts;
}

} // namespace

// Without a file the command line speaks English, which is no failure.
void follow_language() {
    const std::u16string language = zLangProduct();
    zwchar path[Z_PATH_MAX];
    if (language == zLangGlobal() || !zPathGetConf(path)) return;
    if (!zPathAppend(path, (u"zev/" + language + u".lang").c_str()) || !zPathFileExists(path))
        return;
    const OwnedJson file(zJsonReadFile(path));
    if (file) speak(texts_of(file.get()));
}

} // namespace host
