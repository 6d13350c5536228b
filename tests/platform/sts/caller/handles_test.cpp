// Handles of the storage library: every slot with null, stale and made-up handles and with live
// ones of every kind that isn't its own.

#include "tests/platform/sts/disk_store.h"
#include "tests/support/process_state.h"

#include <functional>
#include <memory>

namespace {

/// Records for whatever a slot fills or reads, big enough and never looked at.
struct scratch {
    sts_image_def_s image = image_def("image");
    sts_image_info_s image_info = {};
    sts_lsu_info_s lsu_info = {};
    sts_server_info_s server_info = {};
    sts_lsu_def_s lsu_def = {};
    sts_image_entry_s image_entry = {};
    sts_lsu_entry_s lsu_entry = {};
    sts_image_group_s group = {};
    sts_event_s event = {};
    sts_event_payload_s payload = {};
    sts_event_source_s source = {};
    sts_copy_target_s target = {};
    sts_async_status_s status = {};
    sts_config_buffer_s config = {};
    char text[1024] = {};
    uint64_t count = 0;
    uint32_t used = 0;
    void* out = nullptr;
};

using slot_call = std::function<int(void* handle)>;

class StsHandles : public DiskStore {
  protected:
    StsHandles() {
        store("image", "content");
        handles["session"] = session;
        handles["server"] = server;
        sts_lsu_def_s definition = {};
        definition.name[0] = 'x';
        EXPECT_EQ(api->create_lsu(server, &definition, &handles["LSU"]), STS_OK);
        handles["image"] = open("image");
        const sts_lsu_ref_s lsu = ref();
        sts_next_image_list_s* images = nullptr;
        EXPECT_EQ(api->open_image_list(&lsu, 0, &images), STS_OK);
        handles["image list"] = images;
        sts_next_lsu_list_s* lsus = nullptr;
        EXPECT_EQ(api->open_lsu_list(server, 0, &lsus), STS_OK);
        handles["LSU list"] = lsus;
        sts_next_evchannel_s* channel = nullptr;
        EXPECT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
        handles["channel"] = channel;
        handles["operation"] = start_slow_copy();
        handles["null"] = nullptr;
        handles["stale image"] = open("image");
        EXPECT_EQ(close(handles["stale image"]), STS_OK);
        handles["stale server"] = open_server();
        EXPECT_EQ(close(handles["stale server"]), STS_OK);
        handles["an address"] = &records;
        handles["small number"] = reinterpret_cast<void*>(1);
        handles["all ones"] = reinterpret_cast<void*>(~0UL);
        handles["future image"] = reinterpret_cast<void*>(
            reinterpret_cast<uintptr_t>(handles["image"]) + (uintptr_t{1} << 24U));
    }

    /// A copy that doesn't end by itself.
    sts_next_operation_s* start_slow_copy() {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s source = image_def("image");
        sts_copy_target_s target = {};
        target.lsu[0] = 'x';
        target.image[0] = 'c';
        sts_copy_params_s params = {};
        reinterpret_cast<sts_disk_copy_params_s*>(&params)->block_size = 1;
        reinterpret_cast<sts_disk_copy_params_s*>(&params)->bytes_per_second = 1;
        sts_next_operation_s* operation = nullptr;
        EXPECT_EQ(api->async_copy_image(nullptr, forward(&source), &lsu, forward(&target),
                                        &operation, 0, params),
                  STS_OK);
        return operation;
    }

    /// Calls with every handle that isn't of that kind.
    void refuses_all_but(const std::string& kind, const std::string& slot, const slot_call& call) {
        for (const auto& [name, handle] : handles) {
            if (name != kind) {
                EXPECT_EQ(call(handle), STS_ERR_INVALID) << slot << " with " << name;
            }
        }
    }
    /// The same where a handle is in the record that names an LSU.
    void refuses_all_but_server(const std::string& slot,
                                const std::function<int(const sts_lsu_ref_s*)>& call) {
        refuses_all_but("server", slot, [&](void* handle) {
            sts_lsu_ref_s lsu = ref();
            lsu.server = handle;
            return call(&lsu);
        });
        EXPECT_EQ(call(nullptr), STS_ERR_INVALID) << slot << " with no record";
    }

    template <typename Handle>
    Handle** out() {
        return reinterpret_cast<Handle**>(&records->out);
    }

    std::unique_ptr<scratch> records = std::make_unique<scratch>();
    std::map<std::string, void*> handles;
};

#define SLOT(name) #name, [&](void* handle) { return api->name
#define END                                                                                        \
    ;                                                                                              \
    }

TEST_F(StsHandles, OfOtherKindsAreRefusedWhereASessionIsWanted) {
    const auto as = [](void* handle) { return static_cast<sts_next_session_s*>(handle); };
    refuses_all_but("session", SLOT(open_server)(as(handle), server_name().c_str(), nullptr, 0,
                                                 out<sts_next_server_s>()) END);
    refuses_all_but("session",
                    SLOT(open_evchannel)(as(handle), 0, 0, out<sts_next_evchannel_s>()) END);
    EXPECT_EQ(records->out, nullptr);
}

TEST_F(StsHandles, OfOtherKindsAreRefusedWhereAServerIsWanted) {
    const auto as = [](void* handle) { return static_cast<sts_next_server_s*>(handle); };
    scratch& use = *records;
    use.lsu_def.name[0] = 'y';
    refuses_all_but("server", SLOT(create_lsu)(as(handle), &use.lsu_def, &use.out) END);
    refuses_all_but("server",
                    SLOT(find_lsu)(as(handle), forward(""), forward(&use.lsu_entry), 0, 0, 0) END);
    refuses_all_but("server", SLOT(open_lsu_list)(as(handle), 0, out<sts_next_lsu_list_s>()) END);
    refuses_all_but("server",
                    SLOT(open_target_server)(as(handle), 0, 0, 0, out<sts_next_server_s>()) END);
    refuses_all_but("server", SLOT(get_server_prop)(as(handle), &use.server_info) END);
    refuses_all_but("server",
                    SLOT(get_server_config)(as(handle), use.text, sizeof use.text, &use.used) END);
    refuses_all_but("server",
                    SLOT(set_server_config)(as(handle), "x", use.text, sizeof use.text) END);
    for (const uint32_t command : {0U, 7U, 13U, 14U}) {
        refuses_all_but("server", SLOT(ioctl)(as(handle), command, &use.config) END);
    }
    refuses_all_but("server", SLOT(get_event_payload)(as(handle), forward(&use.event),
                                                      forward(&use.payload)) END);
    refuses_all_but("server", SLOT(delete_event)(as(handle), &use.event) END);
    EXPECT_EQ(use.out, nullptr);
}

TEST_F(StsHandles, OfOtherKindsAreRefusedInARecordThatNamesAnLsu) {
    scratch& use = *records;
    const auto call = [&](auto slot, auto... arguments) {
        return [=](const sts_lsu_ref_s* lsu) { return slot(lsu, arguments...); };
    };
    auto** const image = out<sts_next_image_s>();
    auto** const list = out<sts_next_image_list_s>();
    refuses_all_but_server("create_image", call(api->create_image, &use.image, 0U, image));
    refuses_all_but_server("open_image", call(api->open_image, &use.image, 0U, image));
    refuses_all_but_server("delete_image", call(api->delete_image, &use.image, 0U));
    refuses_all_but_server("get_image_prop_byname",
                           call(api->get_image_prop_byname, &use.image, &use.image_info));
    refuses_all_but_server("get_image_group_byname",
                           call(api->get_image_group_byname, forward("g"), forward(&use.group)));
    refuses_all_but_server("get_lsu_prop_byname", call(api->get_lsu_prop_byname, &use.lsu_info));
    refuses_all_but_server("get_lsu_replication_prop", [&](const sts_lsu_ref_s* lsu) {
        return api->get_lsu_replication_prop(lsu, 0, nullptr, 0, nullptr);
    });
    refuses_all_but_server("label_lsu", call(api->label_lsu, forward("label")));
    refuses_all_but_server("delete_lsu", call(api->delete_lsu));
    refuses_all_but_server("open_image_list", call(api->open_image_list, 0, list));
    refuses_all_but_server("open_image_group_list",
                           call(api->open_image_group_list, sts_forwarded_t{0}, 0, list));
    refuses_all_but_server("async_copy_image", [&](const sts_lsu_ref_s* lsu) {
        return api->async_copy_image(nullptr, forward(&use.image), lsu, forward(&use.target),
                                     out<sts_next_operation_s>(), 0, {});
    });
    EXPECT_EQ(use.out, nullptr);
}

TEST_F(StsHandles, OfOtherKindsAreRefusedWhereAnImageIsWanted) {
    const auto as = [](void* handle) { return static_cast<sts_next_image_s*>(handle); };
    scratch& use = *records;
    auto* const image = as(handles["image"]);
    const sts_forwarded_t count = forward(&use.count);
    refuses_all_but("image", SLOT(read_image)(as(handle), use.text, 1, 0, &use.count) END);
    refuses_all_but("image", SLOT(write_image)(as(handle), 0, use.text, 1, 0, &use.count) END);
    refuses_all_but("image", SLOT(flush)(as(handle), 0, 0, 0, 0, 0) END);
    refuses_all_but("image",
                    SLOT(read_image_meta)(as(handle), forward(use.text), 1, 0, count, 0) END);
    refuses_all_but("image",
                    SLOT(write_image_meta)(as(handle), forward(use.text), 1, 0, count, 0) END);
    refuses_all_but("image", SLOT(copy_extent)(as(handle), 0, image, 0, 1, count, 0) END);
    refuses_all_but("image", SLOT(copy_extent)(image, 0, as(handle), 0, 1, count, 0) END);
    refuses_all_but("image", SLOT(include_in_image)(as(handle), 0, image, count, 0, 0) END);
    refuses_all_but("image", SLOT(include_in_image)(image, 0, as(handle), count, 0, 0) END);
    refuses_all_but("image", SLOT(delete_files)(as(handle), STS_FILES_DATA, 0, 0, 0, 0) END);
    refuses_all_but("image",
                    SLOT(get_image_group)(as(handle), forward(&use.group), 0, 0, 0, 0) END);
    EXPECT_EQ(use.count, 0U);
}

TEST_F(StsHandles, OfImagesAndImageListsServeForTheProperties) {
    for (const auto& [name, handle] : handles) {
        const int expected = name == "image"        ? STS_OK
                             : name == "image list" ? STS_ERR_END_OF_LIST
                                                    : STS_ERR_INVALID;
        EXPECT_EQ(api->get_image_prop(handle, &records->image_info), expected) << name;
    }
}

TEST_F(StsHandles, OfOtherKindsAreRefusedWhereAListIsWanted) {
    refuses_all_but("image list", SLOT(list_image)(static_cast<sts_next_image_list_s*>(handle),
                                                   &records->image_entry) END);
    refuses_all_but("LSU list", SLOT(list_lsu)(static_cast<sts_next_lsu_list_s*>(handle),
                                               &records->lsu_entry) END);
}

TEST_F(StsHandles, OfOtherKindsAreRefusedWhereAChannelIsWanted) {
    const auto as = [](void* handle) { return static_cast<sts_next_evchannel_s*>(handle); };
    refuses_all_but("channel", SLOT(add_evsource)(as(handle), 0, 0, server_name().c_str(),
                                                  &records->source, 0) END);
    refuses_all_but("channel", SLOT(get_event)(as(handle), &records->event) END);
}

TEST_F(StsHandles, OfOtherKindsAreRefusedWhereAnOperationIsWanted) {
    const auto as = [](void* handle) { return static_cast<sts_next_operation_s*>(handle); };
    refuses_all_but("operation", SLOT(async_wait)(nullptr, as(handle), 0, &records->status) END);
    refuses_all_but("operation", SLOT(async_cancel)(nullptr, as(handle)) END);
}

TEST_F(StsHandles, AreClosedOnceEach) {
    const size_t before = descriptors();
    for (const char* const kind :
         {"image", "image list", "LSU list", "channel", "operation", "LSU", "server", "session"}) {
        EXPECT_EQ(close(handles[kind]), STS_OK) << kind;
        EXPECT_EQ(close(handles[kind]), STS_ERR_INVALID) << kind;
    }
    EXPECT_LT(descriptors(), before);
    for (const auto& [name, handle] : handles) {
        EXPECT_EQ(close(handle), STS_ERR_INVALID) << name;
    }
}

TEST_F(StsHandles, AreNeverHandedOutAgain) {
    sts_next_image_s* const stale = open("image");
    EXPECT_EQ(close(stale), STS_OK);
    for (int round = 0; round < 1000; ++round) {
        sts_next_session_s* other = nullptr;
        ASSERT_EQ(api->open_session(&session_def, &other), STS_OK);
        EXPECT_EQ(close(stale), STS_ERR_INVALID);
        ASSERT_EQ(close(other), STS_OK);
    }
    sts_next_image_s* const fresh = open("image");
    EXPECT_NE(fresh, stale);
    EXPECT_EQ(close(stale), STS_ERR_INVALID);
    EXPECT_EQ(read(fresh), "content");
}

TEST_F(StsHandles, AreThereInThousands) {
    std::vector<sts_next_session_s*> sessions(5000);
    for (auto& each : sessions) {
        ASSERT_EQ(api->open_session(&session_def, &each), STS_OK);
    }
    for (auto* const each : sessions) {
        ASSERT_EQ(close(each), STS_OK);
    }
}

#undef SLOT
#undef END

} // namespace
