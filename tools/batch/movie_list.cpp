#include "tools/batch/movie_list.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace batch {

namespace {

std::string absolute(const std::string& path) {
    std::error_code error;
    fs::path full = fs::absolute(path, error);
    if (error) full = path;
    std::string text = full.lexically_normal().string();
    // "card/" and "card" are the same folder.
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

class Lister {
public:
    Lister(const std::string& outputFolder) : outputFolder_(absolute(outputFolder)) {}

    void addInput(const std::string& input) {
        struct stat info {};
        if (::stat(input.c_str(), &info) != 0) {
            problem(input, input, fs::path(input).filename().string(), std::strerror(errno));
        } else if (S_ISDIR(info.st_mode) && isOutputFolder(absolute(input))) {
            problem(input, input, ".", "it is the output folder, which is never taken as input");
        } else if (S_ISDIR(info.st_mode)) {
            walk(input, absolute(input), "");
        } else if (S_ISREG(info.st_mode)) {
            add(input, absolute(input), fs::path(absolute(input)).filename().string(),
                outputPathFor(outputFolder_, input), info);
        } else {
            problem(input, input, fs::path(input).filename().string(), "it is neither a movie file nor a folder");
        }
    }

    // Marks repeats and outputs taken twice.
    std::vector<Movie> finish() {
        std::map<std::pair<dev_t, ino_t>, const Movie*> sources;
        std::map<std::string, const Movie*> outputs;
        for (size_t i = 0; i < movies_.size(); ++i) {
            Movie& movie = movies_[i];
            if (movie.verdict) continue;
            const auto [first, fresh] = sources.emplace(ids_[i], &movie);
            if (!fresh) {
                movie.verdict = Status::Skipped;
                movie.message = movie.source + ": the same movie as " + first->second->source + ", done once";
                continue;
            }
            const auto [taken, free] = outputs.emplace(movie.output, &movie);
            if (!free) {
                movie.verdict = Status::Refused;
                movie.message = movie.output + ": already the output of " + taken->second->source +
                                "; nothing was written.";
            }
        }
        return std::move(movies_);
    }

private:
    void walk(const std::string& input, const std::string& folder, const std::string& inside) {
        // The output folder is never taken as input, wherever it lies.
        if (isOutputFolder(folder)) return;
        std::error_code error;
        fs::directory_iterator it(folder, error);
        std::vector<fs::directory_entry> entries;
        for (; !error && it != fs::directory_iterator(); it.increment(error)) entries.push_back(*it);
        if (error) {
            problem(input, folder, inside.empty() ? "." : inside, "cannot read the folder: " + error.message());
            return;
        }
        std::sort(entries.begin(), entries.end(),
                  [](const fs::directory_entry& a, const fs::directory_entry& b) { return a.path() < b.path(); });
        for (const fs::directory_entry& entry : entries) {
            const std::string name = entry.path().filename().string();
            const std::string relative = inside.empty() ? name : inside + "/" + name;
            std::error_code kindError;
            // Linked folders are not followed: they could lead back up.
            if (entry.is_directory(kindError) && !entry.is_symlink(kindError)) {
                walk(input, entry.path().string(), relative);
                continue;
            }
            if (!isMovieName(name)) continue;
            struct stat info {};
            if (::stat(entry.path().c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
            add(input, entry.path().string(), relative, outputPathFor(outputFolder_, absolute(input), relative), info);
        }
    }

    bool isOutputFolder(const std::string& folder) const {
        std::error_code error;
        return folder == outputFolder_ || fs::equivalent(folder, outputFolder_, error);
    }

    void add(const std::string& input, const std::string& source, const std::string& relative,
             const std::string& output, const struct stat& info) {
        Movie movie;
        movie.input = input;
        movie.source = absolute(source);
        movie.relative = relative;
        movie.output = output;
        movie.size = static_cast<uint64_t>(info.st_size);
        movie.mtimeNs = int64_t(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
        movies_.push_back(std::move(movie));
        ids_.emplace_back(info.st_dev, info.st_ino);
    }

    void problem(const std::string& input, const std::string& path, const std::string& relative,
                 const std::string& cause) {
        Movie movie;
        movie.input = input;
        movie.source = absolute(path);
        movie.relative = relative;
        movie.verdict = Status::Failed;
        movie.message = path + ": " + cause;
        movies_.push_back(std::move(movie));
        ids_.emplace_back(0, 0);
    }

    std::string outputFolder_;
    std::vector<Movie> movies_;
    std::vector<std::pair<dev_t, ino_t>> ids_;
};

}  // namespace

bool isMovieName(const std::string& name) {
    const std::string extension = lower(fs::path(name).extension().string());
    return extension == ".mp4" || extension == ".mov";
}

std::string outputPathFor(const std::string& outputFolder, const std::string& inputFolder,
                          const std::string& relative) {
    std::string name = fs::path(absolute(inputFolder)).filename().string();
    if (name.empty()) name = "root";  // the input was "/"
    return (fs::path(absolute(outputFolder)) / name / relative).lexically_normal().string();
}

std::string outputPathFor(const std::string& outputFolder, const std::string& inputFile) {
    return (fs::path(absolute(outputFolder)) / fs::path(absolute(inputFile)).filename()).string();
}

std::vector<Movie> listMovies(const std::vector<std::string>& inputs, const std::string& outputFolder) {
    Lister lister(outputFolder);
    for (const std::string& input : inputs) lister.addInput(input);
    return lister.finish();
}

}  // namespace batch
