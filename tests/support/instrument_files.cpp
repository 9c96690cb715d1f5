#include "support/instrument_files.hpp"

#include <cstring>

namespace vx::test {

std::string be32_bytes(std::uint32_t v) {
    const char b[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                       static_cast<char>(v)};
    return std::string(b, 4);
}

std::string be_float_bytes(float v) {
    std::uint32_t u;
    std::memcpy(&u, &v, 4);
    return be32_bytes(u);
}

std::string be_double_bytes(double v) {
    std::uint64_t u;
    std::memcpy(&u, &v, 8);
    return be32_bytes(static_cast<std::uint32_t>(u >> 32)) + be32_bytes(static_cast<std::uint32_t>(u));
}

namespace {

std::string be16_bytes(std::uint16_t v) {
    const char b[2] = {static_cast<char>(v >> 8), static_cast<char>(v)};
    return std::string(b, 2);
}

// One 16-byte parameter entry: flag, type, 2-byte field, name offset, then
// the first 8 bytes of its value (types 4 and 6 continue into the next entry).
std::string entry(std::uint8_t type, std::uint32_t name_offset, const std::string& value8) {
    std::string e;
    e += '\x01';                              // +0 flag
    e += static_cast<char>(type);             // +1 type
    e += be16_bytes(0);                       // +2 field
    e += be32_bytes(name_offset);             // +4 name offset, from the name section
    e += value8.substr(0, 8);                 // +8 value
    e.resize(16, '\0');
    return e;
}

}  // namespace

std::string odyssey_bytes(const OdysseyFile& f) {
    const bool table = f.coefficients[0] != 0.0 || f.coefficients[1] != 0.0;
    // Names of the parameters, NUL-terminated, at offsets from the name section.
    std::string names;
    auto add_name = [&names](const char* n) {
        const auto at = static_cast<std::uint32_t>(names.size());
        names += n;
        names += '\0';
        return at;
    };
    const auto n_bw = add_name("Signal_Bandwidth");
    const auto n_ref = add_name("Reference_Frequency");
    const auto n_cal = add_name("Calib_Type");
    const auto n_het = add_name("Heterodyne_Flag");
    const auto n_tab = add_name("Calib_Coefficient_Table");
    const auto n_trap = add_name("Trap_Voltage");

    std::string tab;
    tab += entry(6, n_bw, be_float_bytes(f.bandwidth) + std::string(4, '\0'));  // float, double runs on
    tab += entry(7, n_ref, be_double_bytes(f.reffreq));                          // double
    tab += entry(71, n_cal, be32_bytes(static_cast<std::uint32_t>(f.calib_type)));
    tab += entry(71, n_het, be32_bytes(static_cast<std::uint32_t>(f.heterodyne)));
    if (table) tab += entry(71, n_tab, be32_bytes(0));  // the table at e + 0 behind the names
    // Type 4: integer at +8, float at +12, the double at +16..+23 lies past the
    // entry; as the last entry it lies in the 16 bytes of padding below.
    const std::string trap_value = be32_bytes(7) + be_float_bytes(static_cast<float>(f.trap));
    tab += entry(4, n_trap, trap_value);
    const std::uint32_t p = static_cast<std::uint32_t>(tab.size() / 16);
    tab += be_double_bytes(f.trap) + std::string(8, '\0');  // padding: the run-on double of the last entry

    std::string script = "Odyssey instrument control script\nEvent 1: quench\n";
    if (!f.script) script = "Some other instrument's script\n";
    script.resize(64, '\0');

    std::string data;
    for (float v : f.samples) data += be_float_bytes(v);

    std::string out;
    out += '\x01';                                             // 0: version byte 1
    out += '\x00';                                             // 1: version byte 2
    out += be16_bytes(1) + be16_bytes(2) + be16_bytes(3);      // 2, 4, 6: header fields
    out += be32_bytes(f.first_section);                        // 8: a, first section
    out += be32_bytes(static_cast<std::uint32_t>(script.size()));  // 12: b, script section
    out += be32_bytes(static_cast<std::uint32_t>(data.size()));    // 16: c, data bytes
    out += be32_bytes(static_cast<std::uint32_t>(tab.size()));     // 20: d, before the names
    out += be32_bytes(static_cast<std::uint32_t>(names.size()));   // 24: e, names to the further table
    out += be32_bytes(0);                                      // 28: reserved
    out += be32_bytes(p);                                      // 32: p, parameters
    out += std::string(16, '\0');                              // 36..51: reserved
    out += std::string(12, '\0');                              // 52..63: read as blanks of the script line
    out += std::string(f.first_section, '\0');                 // 64: first section (a bytes)
    out += script;                                             // 64 + a: script section (b bytes)
    out += data;                                               // 64 + a + b: samples (c bytes)
    out += tab;                                                // 64 + a + b + c: table (d bytes)
    out += names;                                              // 64 + a + b + c + d: names (e bytes)
    if (table)
        for (double c : f.coefficients) out += be_double_bytes(c);  // 64 + a + b + c + d + e + 0
    return out;
}

std::string melbar_bytes(const std::vector<std::array<float, 5>>& records) {
    std::string out(records.size() * 20, '\0');
    if (!records.empty()) std::memcpy(out.data(), records.data(), out.size());
    return out;
}

std::string vosk_bytes(const std::vector<float>& samples, float timestep, int header_channels, int channels) {
    const float head[5] = {static_cast<float>(samples.size()), timestep, static_cast<float>(header_channels), 0.f, 0.f};
    std::string out(reinterpret_cast<const char*>(head), 20);
    std::vector<float> rec(static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        for (int c = 0; c < channels; ++c) rec[static_cast<std::size_t>(c)] = -static_cast<float>(i);
        if (channels >= 2) rec[1] = samples[i];
        out.append(reinterpret_cast<const char*>(rec.data()), rec.size() * 4);
    }
    return out;
}

}  // namespace vx::test
