// Hands messages to the engine, which trains them when it finds it time.
//   learn --spam|--ham FILE...
#include <client/tvr_ipc.h>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

int main(int argc, char** argv) {
    const std::string verdict = argc > 2 ? argv[1] : "";
    if (verdict != "--spam" && verdict != "--ham") {
        std::cerr << "learn --spam|--ham FILE...\n";
        return 2;
    }

    tvr::tokenizer tokenizer;
    tvr::record_batch batch;
    for (int i = 2; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        const std::string mail{std::istreambuf_iterator<char>(file), {}};
        if (!file || !tvr::looks_like_mail(mail)) {
            std::cerr << argv[i] << ": no mail\n";
            return 1;
        }
        tokenizer.tokenize(mail);
        const auto message = tvr::describe(tokenizer.facts(), mail.size(), verdict == "--spam", false);
        if (!batch.add(message, tokenizer.tokens())) {
            std::cerr << argv[i] << ": too much for one batch\n";
            return 1;
        }
    }

    tvr::training_client client;
    if (const tvr::ipc_status status = client.train(batch); !status) {
        std::cerr << status.text << '\n';
        return 1;
    }
    std::cout << batch.count() << " messages handed over\n";
}
