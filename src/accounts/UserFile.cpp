// The user file: XML without a declaration.
//
//   userlist version="1.0"
//     banned, reserve        the pseudo users, in the form of a user
//     users
//       user                 one for each account
//
//   user form:
//     username               text
//     password               only where there is one: text
//       encryption="None"    one of ENCRYPTION_TYPE_STRINGS
//       salt="..."           only where there is one
//     usergroup              one of USER_GROUP_STRINGS
//     properties             always there
//       property mount="-1"  one for each mount id of the table
//         filter type="IP"   text; one of REQUEST_PROPERTY_STRINGS
#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "streaming/MountList.h"

#include <cstdlib>
#include <limits>
#include <optional>
#include <span>
#include <tinyxml2.h>
#include <utility>

const std::array<const char*, 7> User::USER_GROUP_STRINGS = {
    "Anonymous",     "Banned",       "Administrator", "Statistics",
    "Mount Manager", "Mount Source", "Listener"};
const std::array<const char*, 3> User::ENCRYPTION_TYPE_STRINGS = {"None", "MD5", "SHA-512"};
const std::array<const char*, 5> User::REQUEST_PROPERTY_STRINGS = {"None", "IP", "Subnet",
                                                                   "User Agent", "All"};

namespace {

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

constexpr const char* VERSION = "1.0";

XMLElement* add_element(XMLDocument& document, XMLElement* parent, const char* name) {
    XMLElement* element = document.NewElement(name);
    parent->InsertEndChild(element);
    return element;
}

XMLElement* add_text(XMLDocument& document, XMLElement* parent, const char* name,
                     const std::string& text) {
    XMLElement* element = add_element(document, parent, name);
    element->InsertEndChild(document.NewText(text.c_str()));
    return element;
}

// An element without text has a null one in the library.
std::string text_of(const XMLElement* element) {
    const char* text = element->GetText();
    return text == nullptr ? std::string() : text;
}

std::optional<std::string> attribute_of(const XMLElement* element, const char* name) {
    const char* text = element->Attribute(name);
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

// The position of a name in a table of names.
template <typename Value>
std::optional<Value> named(std::span<const char* const> names, const std::string& name) {
    for (std::size_t i = 0; i < names.size(); ++i)
        if (name == names[i]) return static_cast<Value>(i);
    return std::nullopt;
}

// The first name stands for values outside the table, which pages can produce.
const char* name_of(std::span<const char* const> names, int value) {
    const auto position = static_cast<std::size_t>(value);
    return names[position < names.size() ? position : 0];
}

// The mount id of a property; nothing when it is no number or there is no such mount.
std::optional<int> mount_of(const XMLElement* property) {
    const auto text = attribute_of(property, "mount");
    if (!text || !is_number(*text)) return std::nullopt;
    const long id = std::strtol(text->c_str(), nullptr, 10);
    if (!std::in_range<int>(id)) return std::nullopt;
    const int mount = static_cast<int>(id);
    if (mount >= 0 && !MountList::GetMount(mount)) return std::nullopt;
    return mount;
}

User::Filters read_filters(const XMLElement* property) {
    User::Filters filters;
    for (auto* filter = property->FirstChildElement("filter"); filter != nullptr;
         filter = filter->NextSiblingElement("filter")) {
        const auto type = attribute_of(filter, "type");
        const std::string text = text_of(filter);
        if (type && !text.empty())
            filters[text] = named<User::RequestProperty>(User::REQUEST_PROPERTY_STRINGS, *type)
                                .value_or(User::NONE);
    }
    return filters;
}

} // namespace

// ---- One user -----------------------------------------------------------------------------------

void User::Serialize(XMLDocument& document, XMLElement* element) const {
    spin_guard guard(lock);
    add_text(document, element, "username", username);
    if (!password.empty()) write_password(document, element);
    add_text(document, element, "usergroup", name_of(USER_GROUP_STRINGS, group));
    write_properties(document, element);
}

void User::write_password(XMLDocument& document, XMLElement* element) const {
    XMLElement* written = add_text(document, element, "password", password);
    written->SetAttribute("encryption", name_of(ENCRYPTION_TYPE_STRINGS, encryption));
    if (!salt.empty()) written->SetAttribute("salt", salt.c_str());
}

void User::write_properties(XMLDocument& document, XMLElement* element) const {
    XMLElement* written = add_element(document, element, "properties");
    for (const auto& [mount, filters] : properties) {
        XMLElement* property = add_element(document, written, "property");
        property->SetAttribute("mount", mount);
        for (const auto& [text, type] : *filters)
            add_text(document, property, "filter", text)
                ->SetAttribute("type", name_of(REQUEST_PROPERTY_STRINGS, type));
    }
}

std::string User::Unserialize(const XMLElement* element) {
    if (const auto* child = element->FirstChildElement("properties")) read_properties(child);
    spin_guard guard(lock);
    if (const auto* child = element->FirstChildElement("username")) username = text_of(child);
    if (const auto* child = element->FirstChildElement("password")) read_password(child);
    if (const auto* child = element->FirstChildElement("usergroup"))
        group = named<UserGroup>(USER_GROUP_STRINGS, text_of(child)).value_or(group);
    return username;
}

void User::read_password(const XMLElement* element) {
    encryption = NO_ENCRYPTION;
    // Kept: looked up among the group names, so that "None" fits nothing and a salt is lost with
    // the first load. Running installations load their files with that effect.
    constexpr std::size_t TYPES = std::tuple_size_v<decltype(ENCRYPTION_TYPE_STRINGS)>;
    const auto names = std::span(USER_GROUP_STRINGS).first<TYPES>();
    const auto type =
        named<EncryptionType>(names, attribute_of(element, "encryption").value_or(""));
    if (type) {
        encryption = *type;
        salt = attribute_of(element, "salt").value_or(salt);
    }
    password = text_of(element);
}

void User::read_properties(const XMLElement* element) {
    for (auto* property = element->FirstChildElement("property"); property != nullptr;
         property = property->NextSiblingElement("property")) {
        const auto mount = mount_of(property);
        if (!mount) continue;
        auto filters = std::make_shared<const Filters>(read_filters(property));
        spin_guard guard(lock);
        properties.insert_or_assign(*mount, std::move(filters));
    }
}

// ---- The whole file -----------------------------------------------------------------------------

std::string UserList::Text() {
    XMLDocument document;
    XMLElement* root = document.NewElement("userlist");
    document.InsertEndChild(root);
    root->SetAttribute("version", VERSION);
    GetBanUser()->Serialize(document, add_element(document, root, "banned"));
    GetReserveUser()->Serialize(document, add_element(document, root, "reserve"));
    XMLElement* users = add_element(document, root, "users");
    for (const auto& [name, user] : GetUserList(-1))
        user->Serialize(document, add_element(document, users, "user"));
    tinyxml2::XMLPrinter printer;
    document.Print(&printer);
    return printer.CStr();
}

namespace {

// A pseudo user is what it is: a group that the file gives it would hand its list to nobody but
// administrators, or make a login of it.
void read_pseudo_user(const XMLElement* element, User& user) {
    if (element == nullptr) return;
    user.Unserialize(element);
    user.SetGroup(User::ANONYMOUS);
}

} // namespace

bool UserList::read(const XMLDocument& document) {
    const XMLElement* root = document.FirstChildElement("userlist");
    if (root == nullptr || attribute_of(root, "version") != VERSION) return false;
    read_pseudo_user(root->FirstChildElement("banned"), *GetBanUser());
    read_pseudo_user(root->FirstChildElement("reserve"), *GetReserveUser());
    const XMLElement* users = root->FirstChildElement("users");
    if (users == nullptr) return true;
    for (auto* element = users->FirstChildElement("user"); element != nullptr;
         element = element->NextSiblingElement("user")) {
        const auto user = std::make_shared<User>();
        const std::string name = user->Unserialize(element);
        if (!name.empty() && name != "Anonymous") put(user);
    }
    return true;
}
