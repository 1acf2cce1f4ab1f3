// Bucket commands: list buckets or a bucket's contents, make and remove buckets.
#include <cinttypes>
#include <cstdio>

#include "commands.h"
#include "ox/owned.hpp"

namespace tool {
namespace {

std::string text(const OXU8String* s) { return s ? std::string(s->stg, s->len) : std::string(); }

int listBuckets(Session& s) {
    OXS3Connection c = s.connection();
    ox::Owned<OXS3BucketList> list;
    const OXStatus st = c->getUserBuckets(c, nullptr, list.out());
    if (st != OX_OK) return s.fail("ls", st);
    for (int64_t i = 0; list->bucketList && i < list->bucketList->count; ++i) {
        const auto* bucket = reinterpret_cast<const OXS3Bucket*>(list->bucketList->items[i]);
        std::printf("%-24s  s3://%s\n", text(bucket->creationDate).c_str(), text(bucket->name).c_str());
    }
    return 0;
}

// Objects with size and date; common prefixes as "PRE name/".
int listContents(Session& s, const S3Url& url) {
    OXS3Connection c = s.connection();
    ox::Owned<OXArray_S> entries;
    const OXStatus st = c->getBucketContents(c, url.bucket.c_str(), url.path.c_str(), entries.out());
    if (st != OX_OK) return s.fail("ls", st);
    for (int64_t i = 0; entries && i < entries->count; ++i) {
        const auto* entry = reinterpret_cast<const OXS3BucketEntry*>(entries->items[i]);
        const std::string name = text(entry->name);
        if (name.ends_with('/') && text(entry->lastModified).empty())
            std::printf("%-24s  %12s  %s\n", "", "PRE", name.c_str());
        else
            std::printf("%-24s  %12" PRIu64 "  %s\n", text(entry->lastModified).c_str(),
                        static_cast<uint64_t>(entry->size), name.c_str());
    }
    return 0;
}

int runList(const GlobalOptions& options, const std::string& target) {
    S3Url url;
    if (!target.empty() && !requireS3Url("ls", target, url, false)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    return target.empty() ? listBuckets(s) : listContents(s, url);
}

int runMakeBucket(const GlobalOptions& options, const std::string& target) {
    S3Url url;
    if (!requireS3Url("mb", target, url, false)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    OXS3Connection c = s.connection();
    const OXStatus st = c->createBucket(c, url.bucket.c_str(), oxs3AccessDefault, nullptr);
    if (st != OX_OK) return s.fail("mb", st);
    std::printf("make_bucket: s3://%s\n", url.bucket.c_str());
    return 0;
}

int runRemoveBucket(const GlobalOptions& options, const std::string& target) {
    S3Url url;
    if (!requireS3Url("rb", target, url, false)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    OXS3Connection c = s.connection();
    const OXStatus st = c->deleteBucket(c, url.bucket.c_str());
    if (st != OX_OK) return s.fail("rb", st);
    std::printf("remove_bucket: s3://%s\n", url.bucket.c_str());
    return 0;
}

}  // namespace

void addBucketCommands(CLI::App& app, Invocation& call) {
    auto* ls = app.add_subcommand("ls", "List your buckets, or the keys and directories under s3://bucket[/prefix]");
    ls->add_option("target", call.first, "s3://bucket[/prefix]");
    ls->callback([&call] { call.exitStatus = runList(call.options, call.first); });

    auto* mb = app.add_subcommand("mb", "Make a bucket");
    mb->add_option("bucket", call.first, "s3://bucket")->required();
    mb->callback([&call] { call.exitStatus = runMakeBucket(call.options, call.first); });

    auto* rb = app.add_subcommand("rb", "Remove an empty bucket");
    rb->add_option("bucket", call.first, "s3://bucket")->required();
    rb->callback([&call] { call.exitStatus = runRemoveBucket(call.options, call.first); });
}

}  // namespace tool
