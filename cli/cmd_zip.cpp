// vantorix zip FILE... / vantorix unzip ARCHIVE [DIR]: the ".Z" archives that
// the readers unpack on the fly.
#include <filesystem>
#include <iostream>

#include <fmt/format.h>

#include "commands.hpp"
#include "formats/tulva_reader.hpp"
#include "platform/safe_file.hpp"
#include "platform/zip.hpp"
#include "platform/zip_tree.hpp"

namespace vx::cli {
namespace {

namespace fs = std::filesystem;

struct ZipOptions {
    std::vector<std::string> files;
    std::string dir;
    bool keep = false;
    bool overwrite = false;
};

struct UnzipOptions {
    std::string archive;
    std::string dir;
};

// Every .dat below a folder, breadth first; the sources go once their
// archives read back.
int run_zip_dir(Context& ctx, const ZipOptions& o) {
    ZipTreeResult result;
    const int rc = zip_tree(o.dir, o.keep, nullptr, nullptr, result, ctx.ui);
    for (const auto& a : result.archives) std::cout << a << '\n';
    if (rc < 0) return 1;
    ctx.ui.MessagePopup("Complete", "File Compressed.");
    return 0;
}

int run_zip(Context& ctx, const ZipOptions& o) {
    ctx.ui.default_confirm = o.overwrite;
    if (!o.dir.empty() && !o.files.empty()) {
        ctx.ui.MessagePopup("Error", "Cannot zip file!");
        ctx.ui.Console("  (name files or --dir, not both)\n");
        return 1;
    }
    if (!o.dir.empty()) return run_zip_dir(ctx, o);
    if (o.files.empty()) {
        ctx.ui.MessagePopup("Error", "Cannot zip file!");
        ctx.ui.Console("  (no file named; give files or --dir DIR)\n");
        return 1;
    }
    // Everything is checked before the first archive is written: a missing
    // file, or one named twice (whatever the spelling), stops the command
    // before any source is removed.
    std::vector<std::string> files;
    for (const auto& file : o.files) {
        if (!regular_file_size(file)) {
            ctx.ui.MessagePopup("Error", "Cannot zip file!");
            ctx.ui.Console(fmt::format("  ({} is not a readable file)\n", file));
            return 1;
        }
        bool twice = false;
        for (const auto& seen : files) twice = twice || same_file(seen, file);
        if (twice) {
            ctx.ui.MessagePopup("Error", "Cannot zip file!");
            ctx.ui.Console(fmt::format("  ({} is named twice)\n", file));
            return 1;
        }
        files.push_back(file);
    }
    for (const auto& file : files) {
        fs::path folder = fs::path(file).parent_path();
        if (folder.empty()) folder = ".";
        const std::string archive = file + ".Z";
        std::error_code ec;
        if (fs::exists(archive, ec) &&
            !ctx.ui.ConfirmPopup("File exists", fmt::format("The file {} exists. Overwrite this file?", archive))) {
            ctx.ui.MessagePopup("Error", "Cannot zip file!");
            ctx.ui.Console(fmt::format("  ({} exists; --overwrite replaces it)\n", archive));
            return 1;
        }
        if (zip1(file, folder.string()) != 0) {
            ctx.ui.MessagePopup("Error", "Cannot zip file!");
            return 1;
        }
        // The source goes only after its archive was written.
        if (!o.keep) fs::remove(file, ec);
        std::cout << archive << '\n';
    }
    ctx.ui.MessagePopup("Complete", "File Compressed.");
    return 0;
}

int run_unzip(Context& ctx, const UnzipOptions& o) {
    std::string name = fs::path(o.archive).filename().string();
    if (name.size() > 2 && name[name.size() - 2] == '.' && (name.back() == 'Z' || name.back() == 'z'))
        name.resize(name.size() - 2);
    else
        name += ".out";
    const std::string dir = o.dir.empty() ? (fs::path(o.archive).parent_path().empty()
                                                 ? std::string(".")
                                                 : fs::path(o.archive).parent_path().string())
                                          : o.dir;
    // The member replaces an existing file only once it inflated completely
    // and passed its CRC check (unzip1 writes beside the target first).
    const int rc = unzip1(o.archive, dir, name, MAX_ARCHIVE_MEMBER);
    if (rc != 0) {
        ctx.ui.MessagePopup("Error", "Cannot unzip file!");
        ctx.ui.Console(fmt::format("  ({}: {})\n", o.archive, unzip_error_text(rc)));
        return 1;
    }
    std::cout << (fs::path(dir) / name).string() << '\n';
    return 0;
}

CommandRegistration reg_zip([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<ZipOptions>();
    auto* sub = app.add_subcommand("zip", "Pack each file into FILE.Z beside it (the source is removed)");
    sub->add_option("files", o->files, "Files to pack");
    sub->add_option("--dir", o->dir, "Pack every .dat file below this folder, breadth first");
    sub->add_flag("--keep", o->keep, "Keep the source files");
    sub->add_flag("--overwrite", o->overwrite, "Replace an existing FILE.Z");
    sub->callback([&ctx, o] { ctx.exit_code = run_zip(ctx, *o); });
});

CommandRegistration reg_unzip([](CLI::App& app, Context& ctx) {
    auto o = std::make_shared<UnzipOptions>();
    auto* sub = app.add_subcommand("unzip", "Unpack the file held in a .Z archive");
    sub->add_option("archive", o->archive, "The .Z archive")->required();
    sub->add_option("dir", o->dir, "Folder to unpack into (default: beside the archive)");
    sub->callback([&ctx, o] { ctx.exit_code = run_unzip(ctx, *o); });
});

}  // namespace
}  // namespace vx::cli
