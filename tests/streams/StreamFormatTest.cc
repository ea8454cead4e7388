// A program in another language, written from docs/stream-format.md alone, reads
// streams with everything in them.
#include <gtest/gtest.h>

#include "fxds/Globals.h"
#include "fxds/XdrEvolution.h"
#include "tests/support/RichGraph.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

enum class Colour : unsigned char { red, blue = 200 };
enum class Far : long { away = 1L << 40 };

/// The kinds of fields that a Rich has none of.
class Values : public fxXDRObj {
    FX_TRANSCRIBABLE(Values)
    Node inner;
    long double wide = 1.5L;
    signed char byte = 7;
    char16_t letter = u'y';
    Colour colour = Colour::blue;
    Far far = Far::away;
    std::pair<std::string, fxStr> pair = {"a", "b"};
    std::array<int, 2> row = {1, -2};
    std::vector<std::string> words = {"c", ""};
    std::vector<double> numbers = {0.5, 2};
    std::vector<bool> flags = {true, false};
    std::map<std::string, std::vector<int>> map = {{"k", {3, 4}}, {"l", {}}};
    std::optional<long> here = 5, gone;
    std::unique_ptr<Node> only = std::make_unique<Node>();
    std::unique_ptr<int> value = std::make_unique<int>(6);
    double* null = nullptr;
    unsigned int count = 7;
};
FX_TRANSCRIBABLE_TYPE(Values, "Values", 1);
fxBool Values::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) &&
           fxXdrAll(t, inner, wide, byte, letter, colour, far, pair, row, words, numbers, flags,
                    map, here, gone, only, value) &&
           fxXdrBlock(t, null, count);
}

class StreamFormat : public testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }

    std::string read(const std::string& bytes) {
        int status = -1;
        const std::string reader = "python3 " FXDS_SOURCE_DIR "/tests/streams/stream_reader.py ";
        const std::string stream = directory.file("stream", bytes);
        const std::string json = directory.file("json");
        const std::string same = outputOf(
            FXDUMP_PATH " --json " + stream + " >" + json + " && " + reader + stream + " " + json,
            status);
        EXPECT_EQ(status, 0) << same;
        return outputOf(reader + stream, status);
    }

    const TestDirectory directory;
};

}  // namespace

TEST_F(StreamFormat, ThePageIsEnoughToReadEverything) {
    EXPECT_EQ(
        read(richStream()),
        R"(#1 Rich {"number": 1, "label": "root", "own": 2, "flag": 1, "small": 1, "row": [1, 2, 3], )"
        R"("real": 0.5, "ints": [97, 0, 99], "bools": [1, 0, 1], "strings": ["a", "", "ccc"], )"
        R"("set": ["", "ccc", "a"], "dictionary": [["", "value"], ["ccc", "value"], ["a", "value"]], )"
        R"("shorts": [1, -2], "integers": [3, -4], "doubles": [5.5, -6.0], "floats": [7.5, -8.0], )"
        R"("text": "a text", "same": "a text", "other": "#20", "second": "#1", "any": "#22", )"
        R"("anything": "#24", "shortArray": "#26", "stringArray": "#28", "string": "#30", )"
        R"("many": ["#22", null, "#1", "#24"]})"
        "\n"
        R"(#30 fxStr {"": "a string"})"
        "\n"
        R"(#28 ARRAY {"": ["a", "", "ccc"]})"
        "\n"
        R"(#26 ARRAY {"": [97, 0, 99]})"
        "\n"
        R"(#24 Leaf {"number": 0, "owner": "#22", "weight": 0.0})"
        "\n"
        R"(#22 Node {"number": 0, "text": ")" +
            std::string(600, 'n') +
            R"(", "left": "#22", "right": "#24"})"
            "\n"
            R"(#20 Rich {"number": 0, "label": "", "own": 0, "flag": 1, "small": 1, "row": [1, 2, 3], )"
            R"("real": 0.5, "ints": [], "bools": [], "strings": [], "set": [], "dictionary": [], )"
            R"("shorts": null, "integers": null, "doubles": null, "floats": null, "text": null, )"
            R"("same": null, "other": "#1", "second": "#1", "any": null, "anything": null, )"
            R"("shortArray": null, "stringArray": null, "string": null, "many": []})"
            "\n");
    Values values;
    values.inner.text = "inner";
    values.only->left = values.only.get();
    EXPECT_EQ(
        read(saved(&values)),
        R"(#1 Values {"edition": 1, "inner": {"number": 0, "text": "inner", "left": null, )"
        R"("right": null}, "wide": 1.5, "byte": 7, "letter": 121, "colour": 200, )"
        R"("far": 1099511627776, "pair": ["a", "b"], "row": [1, -2], "words": ["c", ""], )"
        R"("numbers": [0.5, 2.0], "flags": [1, 0], "map": [["k", [3, 4]], ["l", []]], "here": 5, )"
        R"("gone": null, "only": "#6", "value": 6, "null": null})"
        "\n"
        R"(#6 Node {"number": 0, "text": "", "left": "#6", "right": null})"
        "\n");
}
