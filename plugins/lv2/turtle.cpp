// Writes the bundle's turtle from the table of ports.h.
// usage: korla-lv2-turtle FOLDER
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ports.h"

namespace {

using namespace korla_lv2;

struct Place {
    const char *speaker, *name, *designation; // designation: of the port-groups extension; null where it has none
};
constexpr Place places[] = {
    {"FL", "Front Left", "left"},          {"FR", "Front Right", "right"},    {"FC", "Front Centre", "center"},
    {"LFE", "LFE", "lowFrequencyEffects"}, {"SL", "Side Left", "sideLeft"},   {"SR", "Side Right", "sideRight"},
    {"BL", "Back Left", "rearLeft"},       {"BR", "Back Right", "rearRight"}, {"TFL", "Top Front Left", nullptr},
    {"TFR", "Top Front Right", nullptr},   {"TBL", "Top Back Left", nullptr}, {"TBR", "Top Back Right", nullptr},
};

// The port-groups class of a layout, whose 5.1 has one pair of surrounds and calls it rear.
const char* group_class(const char* layout) {
    return std::strcmp(layout, "stereo") == 0 ? "pg:StereoGroup"
           : std::strcmp(layout, "5.1") == 0  ? "pg:FivePointOneGroup"
           : std::strcmp(layout, "7.1") == 0  ? "pg:SevenPointOneGroup"
                                              : "pg:DiscreteGroup";
}

class File {
public:
    File(const std::string& folder, const char* name) : file_(std::fopen((folder + "/" + name).c_str(), "w")) {
        if (!file_) {
            std::perror(name);
            std::exit(1);
        }
    }
    ~File() {
        if (std::fclose(file_) != 0)
            std::exit(1);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    [[gnu::format(printf, 2, 3)]] void print(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        std::vfprintf(file_, format, arguments);
        va_end(arguments);
    }

private:
    std::FILE* file_;
};

void write_manifest(const std::string& folder) {
    File file(folder, "manifest.ttl");
    file.print(
        "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n");
    for (const Pair& pair : pairs)
        file.print("\n<%s>\n\ta lv2:Plugin ;\n\tlv2:binary <korla.so> ;\n\trdfs:seeAlso <korla.ttl> .\n", pair.uri);
}

// Ports are separated by commas: each but the first begins with one.
void write_audio(File& file, const Pair& pair, const korla_layout& layout, bool is_input, uint32_t& index) {
    const char* layout_name = is_input ? pair.from : pair.to;
    for (uint32_t c = 0; c < layout.count; c++)
        for (const Place& place : places) {
            const char* speaker = korla_speaker_name(layout.speakers[c]);
            if (std::strcmp(place.speaker, speaker) != 0)
                continue;
            file.print("%s [\n\t\ta lv2:%sPort , lv2:AudioPort ;\n\t\tlv2:index %u ;\n\t\tlv2:symbol \"%s_%s\" ;\n",
                       index == 0 ? "" : " ,", is_input ? "Input" : "Output", index, is_input ? "in" : "out", speaker);
            file.print("\t\tlv2:name \"%s%s\" ;\n\t\trdfs:comment \"The speaker %s.\" ;\n", place.name,
                       is_input ? " In" : " Out", speaker);
            const char* designation = place.designation;
            if (std::strcmp(layout_name, "5.1") == 0 && designation && std::strncmp(designation, "side", 4) == 0)
                designation = designation[4] == 'L' ? "rearLeft" : "rearRight";
            if (designation)
                file.print("\t\tlv2:designation pg:%s ;\n", designation);
            file.print("\t\tpg:group <%s#%s>\n\t]", pair.uri, is_input ? "in" : "out");
            index++;
        }
}

void write_plugin(File& file, const Pair& pair) {
    const Layouts layouts = layouts_of(pair);
    file.print("\n<%s#in>\n\ta pg:InputGroup , %s ;\n\tlv2:symbol \"in\" ;\n\tlv2:name \"%s\" .\n", pair.uri,
               group_class(pair.from), pair.from);
    file.print(
        "\n<%s#out>\n\ta pg:OutputGroup , %s ;\n\tpg:source <%s#in> ;\n\tlv2:symbol \"out\" ;\n\tlv2:name \"%s\" .\n",
        pair.uri, group_class(pair.to), pair.uri, pair.to);
    file.print("\n<%s>\n\ta lv2:Plugin , lv2:MixerPlugin ;\n\tdoap:name \"Downmix %s to %s\" ;\n", pair.uri, pair.from,
               pair.to);
    file.print("\tlv2:minorVersion %d ;\n\tlv2:microVersion 0 ;\n", KORLA_MINOR * 2 + 2);
    file.print("\tlv2:optionalFeature lv2:hardRTCapable , log:log , opts:options , urid:map , "
               "bufsz:powerOf2BlockLength ;\n\topts:supportedOption bufsz:minBlockLength ;\n");
    file.print("\tpg:mainInput <%s#in> ;\n\tpg:mainOutput <%s#out> ;\n\tlv2:port", pair.uri, pair.uri);
    uint32_t index = 0;
    write_audio(file, pair, layouts.in, true, index);
    write_audio(file, pair, layouts.out, false, index);
    for (const Control& c : controls) {
        const bool is_switch = c.control == KORLA_LIMITER;
        file.print(" , [\n\t\ta lv2:InputPort , lv2:ControlPort ;\n\t\tlv2:index %u ;\n\t\tlv2:symbol \"%s\" ;\n",
                   index++, c.symbol);
        file.print("\t\tlv2:name \"%s\" ;\n\t\trdfs:comment \"%s\" ;\n\t\tlv2:default %.1f ;\n", c.name, c.comment,
                   double(initial_value(c, layouts.out)));
        file.print("\t\tlv2:minimum %.1f ;\n\t\tlv2:maximum %.1f ;\n\t\t%s\n\t]", double(c.low), double(c.high),
                   is_switch ? "lv2:portProperty lv2:toggled , lv2:integer" : "units:unit units:db");
    }
    file.print(
        " , [\n\t\ta lv2:OutputPort , lv2:ControlPort ;\n\t\tlv2:index %u ;\n\t\tlv2:symbol \"gain_reduction\" ;\n"
        "\t\tlv2:name \"Gain Reduction\" ;\n\t\trdfs:comment \"The limiter's greatest in the last block.\" ;\n"
        "\t\tlv2:default 0.0 ;\n\t\tlv2:minimum 0.0 ;\n\t\tlv2:maximum %.1f ;\n\t\tunits:unit units:db\n\t]",
        index++, double(-off_db));
    file.print(
        " , [\n\t\ta lv2:OutputPort , lv2:ControlPort ;\n\t\tlv2:index %u ;\n\t\tlv2:symbol \"latency\" ;\n"
        "\t\tlv2:name \"Latency\" ;\n\t\tlv2:designation lv2:latency ;\n\t\tlv2:default 63.0 ;\n\t\tlv2:minimum 0.0 ;\n"
        "\t\tlv2:maximum 63.0 ;\n\t\tlv2:portProperty lv2:reportsLatency , lv2:integer ;\n"
        "\t\tunits:unit units:frame\n\t] .\n",
        index++);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    write_manifest(argv[1]);
    File file(argv[1], "korla.ttl");
    file.print("@prefix bufsz: <http://lv2plug.in/ns/ext/buf-size#> .\n"
               "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
               "@prefix log: <http://lv2plug.in/ns/ext/log#> .\n"
               "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
               "@prefix opts: <http://lv2plug.in/ns/ext/options#> .\n"
               "@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .\n"
               "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
               "@prefix units: <http://lv2plug.in/ns/extensions/units#> .\n"
               "@prefix urid: <http://lv2plug.in/ns/ext/urid#> .\n");
    for (const Pair& pair : pairs)
        write_plugin(file, pair);
}
