#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <memory>

namespace tessel {

// An object that shows every method call to a check before the method's
// arguments are unmarshalled: the generated adaptors register on it, and a
// call the check refuses (it has replied itself) never reaches them.
class DbusCheckedObject : public sdbus::IObject {
public:
    // False when the check refused and replied.
    using Check = std::function<bool(const sdbus::MethodCall& call)>;
    // Runs after each admitted call's handler, returned or thrown.
    using After = std::function<void()>;

    DbusCheckedObject(std::unique_ptr<sdbus::IObject> object, Check check, After after);

    using sdbus::IObject::emitSignal;
    using sdbus::IObject::registerMethod;
    using sdbus::IObject::registerProperty;
    using sdbus::IObject::registerSignal;

    void registerMethod(const std::string& interfaceName, std::string methodName, std::string inputSignature,
        std::string outputSignature, sdbus::method_callback methodCallback, sdbus::Flags flags) override;
    void registerMethod(const std::string& interfaceName, std::string methodName, std::string inputSignature,
        const std::vector<std::string>& inputNames, std::string outputSignature,
        const std::vector<std::string>& outputNames, sdbus::method_callback methodCallback,
        sdbus::Flags flags) override;
    void registerSignal(const std::string& interfaceName, std::string signalName, std::string signature,
        sdbus::Flags flags) override;
    void registerSignal(const std::string& interfaceName, std::string signalName, std::string signature,
        const std::vector<std::string>& parameterNames, sdbus::Flags flags) override;
    void registerProperty(const std::string& interfaceName, std::string propertyName, std::string signature,
        sdbus::property_get_callback getCallback, sdbus::Flags flags) override;
    void registerProperty(const std::string& interfaceName, std::string propertyName, std::string signature,
        sdbus::property_get_callback getCallback, sdbus::property_set_callback setCallback,
        sdbus::Flags flags) override;
    void setInterfaceFlags(const std::string& interfaceName, sdbus::Flags flags) override;
    void finishRegistration() override;
    void unregister() override;
    sdbus::Signal createSignal(const std::string& interfaceName, const std::string& signalName) override;
    void emitSignal(const sdbus::Signal& message) override;
    void emitPropertiesChangedSignal(
        const std::string& interfaceName, const std::vector<std::string>& propNames) override;
    void emitPropertiesChangedSignal(const std::string& interfaceName) override;
    void emitInterfacesAddedSignal() override;
    void emitInterfacesAddedSignal(const std::vector<std::string>& interfaces) override;
    void emitInterfacesRemovedSignal() override;
    void emitInterfacesRemovedSignal(const std::vector<std::string>& interfaces) override;
    void addObjectManager() override;
    void removeObjectManager() override;
    bool hasObjectManager() const override;
    sdbus::IConnection& getConnection() const override;
    const std::string& getObjectPath() const override;
    const sdbus::Message* getCurrentlyProcessedMessage() const override;

private:
    sdbus::method_callback checked(sdbus::method_callback callback);

    std::unique_ptr<sdbus::IObject> _object;
    Check _check;
    After _after;
};

} // namespace tessel
