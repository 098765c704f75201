// Language: the catalogue of the command line's own texts, beside those of the library.
#pragma once

namespace host {

// Texts are in the library's language from here on, as far as there is a catalogue for it.
void follow_language();

} // namespace host
