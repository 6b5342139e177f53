// tvrctl tokenize: cuts mail into records that "train --records" learns, on any machine.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

#include "platform/process.h"
#include "tools/commands/mail_input.h"
#include "tools/mail/mail_reading.h"
#include "tools/mail/record_stream.h"

namespace tvr {

namespace {

struct tokenize_options {
    std::vector<std::string> paths;
    std::string output = "-";
    bool spam = false;
    bool ham = false;
    bool recursive = false;
    bool manual = false;
    bool quiet = false;
    bool verbose = false;
    unsigned threads = 0;
};

// Writes the records of each chunk.
class record_worker final : public mail_worker {
public:
    record_worker(record_writer& writer, std::ostream& out, bool manual, std::uint64_t& written)
        : m_writer(writer), m_out(out), m_manual(manual), m_written(written) {}

    void begin() override { m_batch.clear(); }
    void take(const mail_item& mail, const tokenizer& cut) override {
        m_batch.add(describe(cut.facts(), mail.size, mail.spam, m_manual), cut.tokens());
    }
    bool commit() override {
        m_writer.write(m_batch);
        m_written += m_batch.count();
        return m_out.good();
    }

private:
    record_writer& m_writer;
    std::ostream& m_out;
    bool m_manual;
    std::uint64_t& m_written;
    record_batch m_batch;
};

int tokenize(const tokenize_options& options) {
    const bool to_file = options.output != "-";
    if (!to_file && platform::is_terminal(stdout))
        return fail("records are binary: name a file with -o, or pipe them to \"tvrctl train --records -\"");
    std::ofstream file;
    if (to_file)
        file.open(options.output, std::ios::binary);
    std::ostream& out = to_file ? file : std::cout;
    record_writer writer(out);
    mail_paths paths{.recursive = options.recursive};
    (options.spam ? paths.spam : paths.ham) = options.paths;
    mail_reading reading(paths, "Reading mail", {.quiet = options.quiet, .verbose = options.verbose});
    std::uint64_t written = 0;
    if (out.good())
        reading.run([&] { return std::make_unique<record_worker>(writer, out, options.manual, written); },
                    options.threads);
    writer.finish();
    if (!out.good())
        return fail((to_file ? options.output : "standard output") + ": can't be written");
    if (to_file && !options.quiet)
        std::printf("Wrote %s records; skipped %s.\n", grouped(written).c_str(),
                    grouped(reading.skipped()).c_str());
    if (reading.passed().count(passed_mail::kind::lost) != 0)
        return exit_code::failed;
    return written != 0 ? exit_code::done : exit_code::nothing_taken;
}

} // namespace

void add_tokenize(CLI::App& program, int& code) {
    auto options = std::make_shared<tokenize_options>();
    CLI::App* command =
        program.add_subcommand("tokenize", "Cut mail into records for another machine to learn");
    command
        ->add_option("FILE", options->paths,
                     "Mail: files, mbox files, Maildirs, folders, or - for standard input")
        ->required();
    auto* spam = command->add_flag("--spam", options->spam, "It is spam");
    command->add_flag("--ham", options->ham, "It is good mail")->excludes(spam);
    command->add_flag("-r,--recursive", options->recursive, "Read the other folders of a Maildir, too");
    command->add_flag("--manual", options->manual, "Mark the messages as the user's own verdict");
    command->add_option("-o,--output", options->output, "Where the records go; - is standard output")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_flag("-q,--quiet", options->quiet, "Show no progress");
    command->add_flag("-v,--verbose", options->verbose, "Name everything that is skipped");
    add_threads(*command, options->threads);
    command->footer("One of --spam and --ham is needed. Folders are read as by \"tvrctl train\".\n\n"
                    "Exit code 0: written; 1: there was no mail; 2: wrong usage; 3: a path that was named "
                    "can't be read, or\n"
                    "an error.\n\n"
                    "Examples:\n"
                    "  tvrctl tokenize ~/Maildir/.Spam --spam -o spam.records\n"
                    "  tvrctl tokenize ~/Maildir --ham | ssh desktop tvrctl train --records -");
    command->callback([options, &code] {
        if (!options->spam && !options->ham)
            throw CLI::RequiredError("--spam or --ham");
        code = tokenize(*options);
    });
}

} // namespace tvr
