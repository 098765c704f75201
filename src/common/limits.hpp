// Bounds on what is read from files, peers and users, each with its reason.
#pragma once

#include <cstdint>

namespace zev::limits {

// Open brackets in a JSON text, the mode stack's bottom not counted.
inline constexpr uint32_t json_depth = 255;
// A string of the stream encoding; larger ones are refused on both sides.
inline constexpr uint32_t string_bytes = 0x4000000;
// Name of a section of a drawing file; the reader holds it in memory.
inline constexpr uint32_t section_name = 256;
// Sections of a drawing file: five are written, more can only be a damaged count.
inline constexpr uint32_t section_count = 64;
// Description of an item in the trash: two paths with every character escaped, and some room.
inline constexpr uint32_t trash_info = 0x4000;
// Directories above a file in a node tree, each of which holds its path: no path of 511 units, the
// longest that any operation takes, has more.
inline constexpr uint32_t path_depth = 255;
// Entries of all trees of a commit, each as often as it stands there: a project of a million files
// has a few more.
inline constexpr uint64_t tree_entries = 1u << 22;
// What is allocated at once for data whose true size is not yet known.
inline constexpr uint64_t step = 1u << 20;
// Bytes put into one LevelDB batch: a larger one is replayed whole by the next open.
inline constexpr uint64_t batch_bytes = 1u << 20;
// The same for what a client sends, whose rows stand or fall together: twice what it sends at once.
inline constexpr uint64_t sent_batch_bytes = 4u << 20;
// A revision record, which is held in memory: a commit of a million files has half of it.
inline constexpr uint64_t record_bytes = 1u << 30;
// An escaped URI: the longest text, of 2,047 units, each of which can take nine bytes.
inline constexpr uint32_t uri_bytes = 9 * 2047;
// Objects of a received pack, for which memory is taken by what its header says: a project of a
// million files with ten thousand commits has fewer.
inline constexpr uint32_t pack_objects = 1u << 24;
// The same for what a client sends in one request: a day's work, not a project.
inline constexpr uint32_t sent_objects = 1'000'000;
// An object from a client: the largest file. A tree, commit or tag is parsed in memory: a directory
// of a million files.
inline constexpr uint64_t object = 1u << 30;
inline constexpr uint64_t object_form = 64u << 20;
// A row from a client: a key is that of a drawing's object, with room; a value one such object, the
// largest of which are pictures.
inline constexpr uint64_t row_key = 64;
inline constexpr uint64_t row_value = 64u << 20;
// Tags that a tag leads through before it comes to what it stands for.
inline constexpr uint32_t tag_depth = 16;
// Decompressed bytes that any pack may give, and how many for each of its bytes beyond: text and
// drawing rows stay below it, a small one that was made to fill a disk does not.
inline constexpr uint64_t inflated = 64u << 20;
inline constexpr uint64_t inflation = 256;
// Regular expressions. A pattern is typed by a person; the longest text is some URIs long.
inline constexpr uint32_t regex_pattern = 1024;
inline constexpr uint32_t regex_text = 0x8000;
// Steps of a search, 10 to 50 ns each: enough to go from each place of 1,000 bytes to the end and
// back. And steps times bytes of the text, since a step may run through all of it: four seconds
// at worst. The longest text still has twenty steps for each byte.
inline constexpr uint64_t regex_steps = 30'000'000;
inline constexpr uint64_t regex_work = 10ull << 31;
// Choices that a match can go back to: four for each byte of the longest text. Each takes a frame
// of some 150 bytes, and 16 more for each group: the bytes hold the frames of a dozen groups.
inline constexpr uint32_t regex_depth = 4 * regex_text;
inline constexpr uint32_t regex_heap = 64u << 20;

// HTTP. The head of a message: addresses have some 2,000 bytes, fields some hundred each.
inline constexpr uint32_t http_head = 32768;
inline constexpr uint32_t http_fields = 128;
inline constexpr uint32_t http_target = 2047; // what a URI holds
// A body as it travels: the largest drawings, compressed, and a day's work in one pack.
inline constexpr uint64_t http_body = 2ull << 30;
// What a body may be once it was decoded: a request in JSON, which becomes a tree in memory, by its
// bytes and its nodes; else as many as may travel.
inline constexpr uint64_t http_json = 64u << 20;
inline constexpr uint64_t http_nodes = 1'000'000;
inline constexpr uint64_t http_inflated = http_body;
// The same for an answer that a client reads: the listing of a project of two million files.
inline constexpr uint64_t answer_bytes = 512u << 20;
inline constexpr uint64_t answer_nodes = 1u << 24;
// Nanoseconds from a head's first byte to its last; from there on a body may be slow for a while,
// and then has a lowest rate, in bytes a second.
inline constexpr int64_t http_head_time = 20'000'000'000;
inline constexpr int64_t http_body_grace = 10'000'000'000;
inline constexpr uint64_t http_body_rate = 1024;
// And that answers on their way have when the server is told to end: whoever waits for that, and
// the system behind him, gives five seconds or more.
inline constexpr int64_t http_last_call = 3'000'000'000;
// What a peer may go on to send that was answered before it had said all, until it is closed: time
// to read the answer, and what such a peer has on its way by then.
inline constexpr int64_t http_linger_time = 5'000'000'000;
inline constexpr uint64_t http_linger_bytes = 64u << 20;
// So many do that at once; the first one goes when there is one more. They are no connections of
// the server's any more, and take of the descriptors that are left for files.
inline constexpr uint32_t http_lingering = 32;
// Open connections of one server: descriptors are as many as the system grants by default.
inline constexpr uint32_t http_connections = 1024;
// Log-ins that fail within a span of nanoseconds, of one login or from one address, before both are
// turned away unheard: a person who tries what he remembers needs fewer. Of so many logins and
// addresses the failures are kept, some 200 bytes each.
inline constexpr uint32_t login_failures = 10;
inline constexpr int64_t login_span = 60'000'000'000;
inline constexpr uint32_t login_keys = 4096;
// The file of remembered logins, its bytes and its nodes: some thousand of them.
inline constexpr uint64_t cookie_file = 1u << 20;
// A stream that grows beyond this goes on in a file.
inline constexpr uint64_t spill = 256u << 10;

} // namespace zev::limits
