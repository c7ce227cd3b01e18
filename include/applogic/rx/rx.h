#pragma once

/// The reactive core: cold `Observable<T>` streams with `just`, `error`, `create`, `from`,
/// `map`, `flatMap`, `flatMapLatest`, `merge` and `mergeAll`; `PublishSubject`,
/// `BehaviorSubject` and `Variable`; `Disposable`, `CompositeDisposable` and `DisposeBag`;
/// and `blockingCollect` for tests and for code that must wait for a stream's end.

#include "applogic/rx/blocking.h"
#include "applogic/rx/disposable.h"
#include "applogic/rx/observable.h"
#include "applogic/rx/subjects.h"
