#include "tools/settings/setting_table.h"

#include <algorithm>

#include "client/verdict/user_limits.h"

namespace tvr {

namespace {

constexpr double any = 4294967295.0;
constexpr double messages = 1000000; // a bound of sense for sizes in messages
constexpr auto by_engine = setting_reader::engine;
constexpr auto by_client = setting_reader::client;

constexpr std::array<setting_facts, 35> field_facts = {{
    {folder_key.data(), by_engine, 0, 0, "where all data of the user lies"},
    {"filter log", by_client, 0, 0, "the mail filter's log"},
    {"list of ignoring kludges", by_client, 0, 0, "the list of header names to pass over"},
    {table_key.data(), by_engine, 0, 0, "the letters that stand for the characters from 33 on"},
    {"local user alphabet", by_engine, 0, 0, "the letters that make a text be transliterated"},
    {"show splash screen", by_client, 0, 0, "a picture at the client's start"},
    {"log current process", by_client, 0, 0, "log the steps of the filter"},
    {"log global state", by_client, 0, 0, "log the state of the filter"},
    {"log grades", by_client, 0, 0, "log the grades of messages"},
    {"filter is logged", by_client, 0, 0, "whether the filter logs at all"},
    {"use white list of kludges", by_client, 0, 0, "use the list of header names"},
    {"use partically translitting", by_engine, 0, 0, "transliterate texts with letters of the alphabet"},
    {"use enhanced grade", by_client, 0, 0, "the finer grade of messages"},
    {"sighificant tokens", by_client, 0, any, "how many tokens decide on a message"},
    {"export selective download", by_engine, 0, 0, "write the list of tokens that only spam has"},
    {"selective download spam threshold", by_engine, 0, any, "the least count of a token in that list"},
    {"limit size to hash", by_client, 0, any, "longer tokens are hashed (bytes)"},
    {"limit size to hash header", by_client, 0, any, "the same for words of headers (bytes)"},
    {"simple digits spam marks", by_client, 0, 0, "digits count as marks"},
    {"no spaces spam marks", by_client, 0, 0, "missing blanks count as marks"},
    {"number of exclamations", by_client, 0, any, "exclamation marks that count as a mark"},
    {"training delay", by_engine, 1, 4294967, "seconds of rest before waiting messages are trained"},
    {"learn from zero", by_client, 0, 0, "learn without any training yet"},
    {"use autotrain", by_client, 0, 0, "train on what was filtered"},
    {"use average instead of bayesian", by_client, 0, 0, "the average of grades decides"},
    {"use degeneration", by_client, 0, 0, "look for other forms of unknown tokens"},
    {"use translit tables from registry", by_client, 0, 0, "look for tables in the registry first"},
    {"recalculating strategy", by_engine, 0, 2147483647, "train when more messages than this wait"},
    {"regarding threshold", by_engine, 0.01, 1000, "how much heavier a token of good mail weighs"},
    {"idle time to shut down server", by_client, 0, any, "minutes"},
    {"behaviour when no train info", by_client, 0, any, "what to do before any training"},
    {"optimal base size per half", by_engine, 1, messages, "messages that are remembered of each kind"},
    {"optimal one dict size", by_engine, 1, messages, "messages in one atom"},
    {"min optimal one dict size", by_engine, 1, messages, "messages in one atom of a small base"},
    {"MaxSinglePathLevel", by_client, 0, 0, "the mail filter's"},
}};

} // namespace

const std::array<setting_facts, 5> common_facts = {{
    {"spam threshold", setting_reader::score, 0, 100, "a message of this score or more is spam"},
    {"unsure threshold", setting_reader::score, 0, 100, "of this score or more: unsure"},
    {"enable outlook", by_client, 0, 1, "filter in this mail program"},
    {"enable express", by_client, 0, 1, "filter in this mail program"},
    {"enable thebat", by_client, 0, 1, "filter in this mail program"},
}};

const std::array<setting_facts, training_schedule::values> schedule_facts = {{
    {"train at messages", by_client, 1, messages,
     "those who hand mail over have it trained when so many wait"},
    {"train after hours", by_client, 0, 8760, "they do the same so long after the last training"},
    {"train corrections", by_client, 0, 1, "a verdict that is corrected is trained at once"},
}};
const setting_facts verdict_facts = {false_positives::key, by_client, 0, false_positives::all,
                                     "so much good mail, of 100,000 messages, may be called spam; the "
                                     "score that makes a message spam is found by it"};

const setting_facts* facts_of(std::string_view key) {
    const auto* const found = std::find_if(field_facts.begin(), field_facts.end(),
                                           [&](const setting_facts& facts) { return key == facts.key; });
    return found == field_facts.end() ? nullptr : found;
}

} // namespace tvr
