// FileTypeProcessor: a decompress processor that goes by the kind of file. It identifies what is decompressed, with the
// name and content type that it was told, and has a call-back turn the type code into an action. Used by one thread at
// a time.
#ifndef PAKFOLD_UNUSED_FILETYPEPROCESSOR_H
#define PAKFOLD_UNUSED_FILETYPEPROCESSOR_H

#include <string>

#include "Mutex.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// The order of fields is part of the framework's contract.
class FileTypeProcessor : public DecompressProcessor {
public:
    class CallBack {
    public:
        CallBack() = default;
        CallBack(const CallBack&) = delete;
        CallBack& operator=(const CallBack&) = delete;
        virtual ~CallBack();
        virtual int getAction(int code) = 0;  // The action for a code of FileTypeIdent.
    };

    // Kept as is: does nothing and returns 0.
    static int setCallBack(CallBack* callBack);

    int init() override;                             // Forgets name, content type and action. 0.
    int setFileName(std::string& name) override;     // The last action.
    int setContentType(std::string& type) override;  // The last action.
    int check(InputStream* in) override;             // The action; also kept.
    int check(BufferBase* buffer) override;          // The action; also kept.
    int requiredLength() override;
    int getAction() override;  // The last action, 0 before the first check().
    ~FileTypeProcessor() override;

    // Borrowed. Null, and nothing in the library sets it: a DefaultCallBack answers.
    static CallBack* call_back;
    static Mutex mutex;  // Taken by no operation.

private:
    int decide(int code);

    std::string _fileName;
    std::string _contentType;
    int _action = 0;
};

}  // namespace ZOV_SPACE

// Answers 1 for every code.
class DefaultCallBack : public ZOV_SPACE::FileTypeProcessor::CallBack {
public:
    ~DefaultCallBack() override;
    int getAction(int code) override;
};

#endif  // PAKFOLD_UNUSED_FILETYPEPROCESSOR_H
